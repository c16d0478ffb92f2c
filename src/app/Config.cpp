#include "Config.h"

#include "FileWrite.h"

#include <QDateTime>
#include <QDebug>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QStandardPaths>

namespace zl {

Config& Config::instance()
{
    static Config config;
    return config;
}

Config::Config(const QString& path) : filePath(path)
{
    load();
}

QString Config::path() const
{
    QString dir;
    if (filePath.isEmpty())
        dir = QStandardPaths::writableLocation(QStandardPaths::AppConfigLocation);
    else
        dir = QFileInfo(filePath).absolutePath();
    makeFolder(dir, FileAccess::Private);
    return filePath.isEmpty() ? dir + QStringLiteral("/config.json") : filePath;
}

void Config::load()
{
    const QString where = path();
    QFile file(where);
    if (!file.exists())
        return;
    if (!file.open(QIODevice::ReadOnly)) {
        saveAllowed = false;
        problem = QStringLiteral("%1 cannot be read (%2). The program runs with default settings and saves "
                                 "nothing until this is fixed.")
                      .arg(where, file.errorString());
        return;
    }
    const QByteArray bytes = file.readAll();
    QJsonParseError error{};
    const QJsonDocument doc = QJsonDocument::fromJson(bytes, &error);
    if (doc.isObject()) {
        root = doc.object();
        return;
    }
    keepDamagedFile(where, bytes);
}

void Config::keepDamagedFile(const QString& where, const QByteArray& bytes)
{
    const QString backup =
        where + QStringLiteral(".broken-") + QDateTime::currentDateTime().toString(QStringLiteral("yyMMdd-HHmmss"));
    if (!writeFileAtomically(backup, bytes, FileAccess::Private)) {
        // Without a copy the damaged file is the only one the user has: leave it alone.
        saveAllowed = false;
        problem = QStringLiteral("%1 is damaged and no copy of it could be made. The program runs with default "
                                 "settings and saves nothing.")
                      .arg(where);
    } else {
        problem = QStringLiteral("%1 was damaged and could not be read. It was kept as %2; the program starts "
                                 "with default settings.")
                      .arg(where, backup);
    }
}

QJsonObject Config::section(const QString& name) const
{
    return root.value(name).toObject();
}

void Config::setSection(const QString& name, const QJsonObject& value)
{
    root.insert(name, value);
    emit configChanged();
}

void Config::setSectionSilent(const QString& name, const QJsonObject& value)
{
    root.insert(name, value);
}

void Config::save()
{
    if (!saveAllowed)
        return;
    // The file holds passwords and API keys: readable by its owner only, whatever it was before.
    if (!writeFileAtomically(path(), QJsonDocument(root).toJson(QJsonDocument::Indented), FileAccess::Private))
        qWarning().noquote() << "Config: could not write" << path() << "— the previous file is kept";
}

QString Config::callsign() const
{
    return section(QStringLiteral("general")).value(QStringLiteral("callsign")).toString();
}

void Config::setCallsign(const QString& callsign)
{
    setGeneralString(QStringLiteral("callsign"), callsign);
}

QString Config::defaultMode() const
{
    return section(QStringLiteral("general")).value(QStringLiteral("default_mode")).toString(QStringLiteral("DMR"));
}

void Config::setDefaultMode(const QString& mode)
{
    setGeneralString(QStringLiteral("default_mode"), mode);
}

void Config::setGeneralString(const QString& key, const QString& value)
{
    QJsonObject general = section(QStringLiteral("general"));
    general.insert(key, value);
    setSection(QStringLiteral("general"), general);
}

QByteArray Config::windowGeometry(const QString& name) const
{
    return windowValue(name, QStringLiteral("geometry"));
}

QByteArray Config::windowState(const QString& name) const
{
    return windowValue(name, QStringLiteral("state"));
}

void Config::setWindowGeometry(const QString& name, const QByteArray& geometry)
{
    setWindowValue(name, QStringLiteral("geometry"), geometry);
}

void Config::setWindowState(const QString& name, const QByteArray& state)
{
    setWindowValue(name, QStringLiteral("state"), state);
}

QByteArray Config::windowValue(const QString& name, const QString& key) const
{
    const QJsonObject window = section(QStringLiteral("windows")).value(name).toObject();
    return QByteArray::fromBase64(window.value(key).toString().toLatin1());
}

void Config::setWindowValue(const QString& name, const QString& key, const QByteArray& value)
{
    QJsonObject windows = section(QStringLiteral("windows"));
    QJsonObject window = windows.value(name).toObject();
    window.insert(key, QString::fromLatin1(value.toBase64()));
    windows.insert(name, window);
    setSection(QStringLiteral("windows"), windows);
    save();
}

QList<QJsonObject> configObjects(const QJsonArray& list, const QString& where)
{
    static const char* const kTypeNames[] = {"null", "bool", "number", "string", "array", "object"};
    QList<QJsonObject> objects;
    for (qsizetype i = 0; i < list.size(); ++i) {
        const QJsonValue value = list.at(i);
        if (value.isObject()) {
            objects.append(value.toObject());
            continue;
        }
        const int type = qBound(0, int(value.type()), 5);
        qWarning().noquote() << "Config: skipped entry" << i << "of" << where << "— a" << kTypeNames[type]
                             << "where an object belongs";
    }
    return objects;
}

} // namespace zl
