#include "TempConfigHome.h"

#include <QCoreApplication>

TempConfigHome::TempConfigHome()
{
    QCoreApplication::setOrganizationName(QStringLiteral("xx0abc"));
    QCoreApplication::setApplicationName(QStringLiteral("zephyrlake"));
    qputenv("XDG_CONFIG_HOME", dir.filePath(QStringLiteral("config")).toLocal8Bit());
    qputenv("XDG_CACHE_HOME", dir.filePath(QStringLiteral("cache")).toLocal8Bit());
    qputenv("HOME", dir.path().toLocal8Bit());
}

QString TempConfigHome::configFile() const
{
    return dir.filePath(QStringLiteral("config/xx0abc/zephyrlake/config.json"));
}
