#include "BmApiServer.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>

namespace {

WebServer::Reply json(int status, const QJsonObject& object)
{
    return {status, "application/json", QJsonDocument(object).toJson(QJsonDocument::Compact), {}};
}

} // namespace

BmApiServer::BmApiServer(const QByteArray& certPem, const QByteArray& keyPem, const QString& apiKey, quint32 device)
    : WebServer([this](const Request& r) { return answer(r); }, certPem, keyPem), key(apiKey), deviceId(device)
{
}

WebServer::Reply BmApiServer::answer(const Request& request)
{
    if (!htmlInstead.isEmpty())
        return {200, "text/html; charset=UTF-8", htmlInstead, {}};
    if (request.headers.value("authorization") != "Bearer " + key.toUtf8())
        return json(401, {{"message", "Unauthenticated."}});
    static const QRegularExpression route(QStringLiteral("^/v2/device/(\\d+)(/.*)$"));
    const QRegularExpressionMatch m = route.match(request.path);
    if (!m.hasMatch() || m.captured(1).toUInt() != deviceId)
        return json(404, {{"message", "Device not found"}});
    const QString rest = m.captured(2);
    const QList<QString> parts = rest.split(QLatin1Char('/'), Qt::SkipEmptyParts);
    const auto removeFrom = [](QJsonArray& list, int slot, quint32 tg) {
        for (qsizetype i = list.size() - 1; i >= 0; --i) {
            const QJsonObject s = list[i].toObject();
            if (s["slot"].toInt() == slot && (tg == 0 || quint32(s["talkgroup"].toInteger()) == tg))
                list.removeAt(i);
        }
    };
    if (request.method == "GET" && rest == QLatin1String("/profile"))
        return json(200, {{"blockedGroups", QJsonArray()},
                          {"staticSubscriptions", staticSubscriptions},
                          {"dynamicSubscriptions", dynamicSubscriptions},
                          {"timedSubscriptions", timedSubscriptions},
                          {"cluster", QJsonArray()}});
    if (request.method == "POST" && rest == QLatin1String("/talkgroup")) {
        const QJsonObject body = QJsonDocument::fromJson(request.body).object();
        staticSubscriptions.append(
            QJsonObject{{"talkgroup", body["group"]}, {"slot", body["slot"]}, {"repeaterid", qint64(deviceId)}});
        return json(200, {{"talkgroup", body["group"]}, {"slot", body["slot"]}});
    }
    if (request.method == "DELETE" && parts.size() == 3 && parts[0] == QLatin1String("talkgroup")) {
        removeFrom(staticSubscriptions, parts[1].toInt(), parts[2].toUInt());
        return {200, "application/json", "", {}};
    }
    if (request.method == "GET" && parts.size() == 3 && parts[1] == QLatin1String("dropDynamicGroups")) {
        removeFrom(dynamicSubscriptions, parts[2].toInt(), 0);
        return json(200, {{"message", "dropped"}});
    }
    return json(404, {{"message", "Not found"}});
}
