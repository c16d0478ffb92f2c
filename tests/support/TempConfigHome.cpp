#include "TempConfigHome.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>

TempConfigHome::TempConfigHome()
{
    QCoreApplication::setOrganizationName(QStringLiteral("xx0abc"));
    QCoreApplication::setApplicationName(QStringLiteral("zephyrlake"));
    qputenv("XDG_CONFIG_HOME", dir.filePath(QStringLiteral("config")).toLocal8Bit());
    qputenv("XDG_CACHE_HOME", dir.filePath(QStringLiteral("cache")).toLocal8Bit());
    qputenv("HOME", dir.path().toLocal8Bit());
    QDir().mkpath(QFileInfo(configFile()).absolutePath());
    QFile file(configFile());
    if (file.open(QIODevice::WriteOnly))
        file.write(QJsonDocument(QJsonObject{{QStringLiteral("directories"), offlineDirectories()}}).toJson());
}

QJsonObject TempConfigHome::offlineDirectories()
{
    // Port 9 (discard) has no listener on a test machine: each download fails at once.
    const QString nowhere = QStringLiteral("http://127.0.0.1:9");
    return QJsonObject{{QStringLiteral("host_lists_url"), nowhere},
                       {QStringLiteral("users_url"), nowhere},
                       {QStringLiteral("repeaters_url"), nowhere},
                       {QStringLiteral("tgif_url"), nowhere}};
}

QString TempConfigHome::configFile() const
{
    return dir.filePath(QStringLiteral("config/xx0abc/zephyrlake/config.json"));
}
