#include "Config.h"

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
    QDir().mkpath(dir);
    return filePath.isEmpty() ? dir + QStringLiteral("/config.json") : filePath;
}

void Config::load()
{
    QFile file(path());
    if (!file.exists() || !file.open(QIODevice::ReadOnly))
        return;
    const QJsonDocument doc = QJsonDocument::fromJson(file.readAll());
    // A damaged file starts with all defaults; the next save replaces it.
    root = doc.isObject() ? doc.object() : QJsonObject();
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
    QFile file(path());
    // The file holds passwords and API keys: a new one is created readable by its owner only.
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate, QFileDevice::ReadOwner | QFileDevice::WriteOwner))
        return;
    file.write(QJsonDocument(root).toJson(QJsonDocument::Indented));
    file.close();
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

} // namespace zl
