#include "dmr/BmProfile.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QVariant>

namespace zl::dmr {

namespace {

QJsonValue firstOf(const QJsonObject& object, std::initializer_list<const char*> keys)
{
    for (const char* key : keys) {
        const QString name = QString::fromLatin1(key);
        if (object.contains(name))
            return object.value(name);
    }
    return {};
}

QList<BmStatic> subscriptions(const QJsonArray& array)
{
    QList<BmStatic> list;
    for (const QJsonValue& entry : array) {
        const QJsonObject object = entry.toObject();
        QJsonValue group = firstOf(object, {"talkgroup", "group", "tg", "id"});
        if (group.isObject())
            group = group.toObject().value(QStringLiteral("id"));
        const BmStatic tg{group.toVariant().toUInt(), firstOf(object, {"slot", "timeslot", "ts"}).toVariant().toInt()};
        if (tg.tg != 0)
            list.append(tg);
    }
    return list;
}

} // namespace

bool parseBmProfile(const QByteArray& body, BmProfile& profile)
{
    const QJsonDocument doc = QJsonDocument::fromJson(body);
    if (!doc.isObject())
        return false;
    const QJsonObject object = doc.object();
    profile.staticTalkgroups = subscriptions(object.value(QStringLiteral("staticSubscriptions")).toArray());
    profile.dynamicTalkgroups = subscriptions(object.value(QStringLiteral("dynamicSubscriptions")).toArray());
    profile.timedTalkgroups = subscriptions(object.value(QStringLiteral("timedSubscriptions")).toArray());
    return true;
}

} // namespace zl::dmr
