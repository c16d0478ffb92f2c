#include "db/ServerRegistry.h"

#include "app/AssetPath.h"
#include "app/Config.h"
#include "db/DirectoryCache.h"
#include "db/HostListFormat.h"

#include <QCoreApplication>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>
#include <QUuid>

namespace zl {

namespace {

ServerEntry entryFromJson(const QJsonObject& o, bool official)
{
    ServerEntry e;
    e.id = o.value(QStringLiteral("id")).toString();
    e.name = o.value(QStringLiteral("name")).toString();
    e.host = o.value(QStringLiteral("host")).toString();
    e.port = o.value(QStringLiteral("port")).toInt(0);
    e.password = o.value(QStringLiteral("password")).toString();
    e.official = official;
    return e;
}

QJsonObject entryToJson(const ServerEntry& e)
{
    return QJsonObject{{QStringLiteral("id"), e.id},
                       {QStringLiteral("name"), e.name},
                       {QStringLiteral("host"), e.host},
                       {QStringLiteral("port"), e.port},
                       {QStringLiteral("password"), e.password}};
}

QString fileName(const QString& mode)
{
    return mode.toLower() + QStringLiteral("_servers.json");
}

} // namespace

ServerRegistry::ServerRegistry(const QString& mode, QObject* parent) : QObject(parent), modeName(mode)
{
    loadOfficial();
    loadUser();
}

QString ServerRegistry::cachePath(const QString& mode)
{
    return directoryCachePath(fileName(mode));
}

QString ServerRegistry::sharePath(const QString& mode)
{
    return QCoreApplication::applicationDirPath() + QStringLiteral("/../share/zephyrlake/servers/") + fileName(mode);
}

QJsonArray ServerRegistry::officialArray(const QString& mode)
{
    // Only a missing or unreadable cache file falls through to the installed list; a damaged
    // one means an empty list until the next download replaces it.
    QFile file(cachePath(mode));
    if (!file.exists() || !file.open(QIODevice::ReadOnly)) {
        file.setFileName(sharePath(mode));
        if (!file.open(QIODevice::ReadOnly))
            return shippedArray(mode);
    }
    return QJsonDocument::fromJson(file.readAll()).array();
}

QJsonArray ServerRegistry::shippedArray(const QString& mode)
{
    // A new user sees the servers of the snapshot that came with the program, in the published
    // layout, until the first download. A mode without a published list (POCSAG) ships its
    // servers in the registry's own form, found in a build tree as in an installed one.
    const HostSource* source = hostSourceFor(mode);
    QFile file(assetPath(source ? source->file : QStringLiteral("servers/") + fileName(mode)));
    if (file.fileName().isEmpty() || !file.open(QIODevice::ReadOnly))
        return {};
    return source ? parseHostList(*source, file.readAll()) : QJsonDocument::fromJson(file.readAll()).array();
}

void ServerRegistry::loadOfficial()
{
    officialList.clear();
    for (const QJsonValue& v : officialArray(modeName))
        officialList.append(entryFromJson(v.toObject(), true));
}

void ServerRegistry::loadUser()
{
    const QJsonObject section = Config::instance().section(modeName.toLower());
    for (const QJsonValue& v : section.value(QStringLiteral("user_servers")).toArray())
        userList.append(entryFromJson(v.toObject(), false));
    QSet<QString> ids;
    for (const QJsonValue& v : section.value(QStringLiteral("selected_server_ids")).toArray())
        ids.insert(v.toString());
    for (ServerEntry& e : officialList)
        e.selected = ids.contains(e.id);
    for (ServerEntry& e : userList)
        e.selected = ids.contains(e.id);
}

QList<ServerEntry> ServerRegistry::selected() const
{
    QList<ServerEntry> out;
    for (const QList<ServerEntry>* list : {&officialList, &userList}) {
        for (const ServerEntry& e : *list) {
            if (e.selected)
                out.append(e);
        }
    }
    return out;
}

void ServerRegistry::save()
{
    QJsonArray users;
    for (const ServerEntry& e : std::as_const(userList))
        users.append(entryToJson(e));
    QJsonArray ids;
    for (const ServerEntry& e : selected())
        ids.append(e.id);
    Config& config = Config::instance();
    const QString name = modeName.toLower();
    QJsonObject section = config.section(name);
    section.insert(QStringLiteral("user_servers"), users);
    section.insert(QStringLiteral("selected_server_ids"), ids);
    config.setSection(name, section);
    config.save();
    emit changed();
}

QString ServerRegistry::addUserServer(ServerEntry e)
{
    for (ServerEntry& known : userList) {
        if (known.host == e.host && known.port == e.port) {
            known.name = e.name;
            known.password = e.password;
            known.selected = e.selected;
            save();
            return known.id;
        }
    }
    if (e.id.isEmpty())
        e.id = QStringLiteral("user-") + QUuid::createUuid().toString(QUuid::WithoutBraces);
    e.official = false;
    userList.append(e);
    save();
    return e.id;
}

void ServerRegistry::updateUserServer(const QString& id, const ServerEntry& e)
{
    for (ServerEntry& known : userList) {
        if (known.id == id) {
            const bool wasSelected = known.selected;
            known = e;
            known.id = id;
            known.selected = wasSelected;
            known.official = false;
            break;
        }
    }
    save();
}

void ServerRegistry::removeUserServer(const QString& id)
{
    for (qsizetype i = 0; i < userList.size(); ++i) {
        if (userList.at(i).id == id) {
            userList.removeAt(i);
            break;
        }
    }
    save();
}

void ServerRegistry::setSelected(const QString& id, bool on)
{
    for (QList<ServerEntry>* list : {&officialList, &userList}) {
        for (ServerEntry& e : *list) {
            if (e.id == id)
                e.selected = on;
        }
    }
    save();
}

} // namespace zl
