#include "dmr/BmApiClient.h"

#include "dmr/WebReply.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>

namespace zl::dmr {

namespace {

QString& testBase()
{
    static QString base;
    return base;
}

} // namespace

BmApiClient::BmApiClient(QObject* parent) : QObject(parent), network(new QNetworkAccessManager(this))
{
    qRegisterMetaType<zl::dmr::BmProfile>();
    qRegisterMetaType<QList<zl::dmr::BmStatic>>();
}

void BmApiClient::setBaseForTests(const QString& origin)
{
    testBase() = origin;
}

QString BmApiClient::apiBaseForServer(const QString& server)
{
    if (!testBase().isEmpty())
        return testBase();
    const QString host = server.section(QLatin1Char(':'), 0, 0).trimmed();
    if (host.isEmpty())
        return {};
    const QStringList labels = host.split(QLatin1Char('.'), Qt::SkipEmptyParts);
    const QString domain = labels.size() < 2 ? host : labels.mid(labels.size() - 2).join(QLatin1Char('.'));
    return QStringLiteral("https://api.") + domain;
}

bool BmApiClient::ready()
{
    if (!base.isEmpty() && !apiKey.isEmpty() && deviceId != 0)
        return true;
    emit errorReported(QStringLiteral("BM API: missing base/key/hotspot ID"));
    return false;
}

QNetworkRequest BmApiClient::request(const QString& path) const
{
    QNetworkRequest req(QUrl(base + path));
    req.setRawHeader("Authorization", "Bearer " + apiKey.toUtf8());
    req.setRawHeader("Accept", "application/json");
    return req;
}

void BmApiClient::fetchProfile()
{
    if (!ready())
        return;
    const QString path = QStringLiteral("/v2/device/%1/profile").arg(deviceId);
    qInfo().noquote() << "BM API GET" << path;
    QNetworkReply* reply = network->get(request(path));
    connect(reply, &QNetworkReply::finished, this, [this, reply] { onProfileReply(reply); });
}

void BmApiClient::dropDynamic(int slot)
{
    if (!ready())
        return;
    const QString path = QStringLiteral("/v2/device/%1/action/dropDynamicGroups/%2").arg(deviceId).arg(slot);
    qInfo().noquote() << "BM API GET" << path;
    QNetworkReply* reply = network->get(request(path));
    const QString label = QStringLiteral("drop dynamic TS%1").arg(slot);
    connect(reply, &QNetworkReply::finished, this, [this, reply, label] { onActionReply(reply, label); });
}

void BmApiClient::removeStatic(quint32 tg, int slot)
{
    if (!ready())
        return;
    // The service puts the slot before the talkgroup here.
    const QString path = QStringLiteral("/v2/device/%1/talkgroup/%2/%3").arg(deviceId).arg(slot).arg(tg);
    qInfo().noquote() << "BM API DELETE" << path;
    QNetworkReply* reply = network->deleteResource(request(path));
    const QString label = QStringLiteral("DEL static TG %1 TS%2").arg(tg).arg(slot);
    connect(reply, &QNetworkReply::finished, this, [this, reply, label] { onActionReply(reply, label); });
}

void BmApiClient::addStatic(quint32 tg, int slot)
{
    if (!ready())
        return;
    QNetworkRequest req = request(QStringLiteral("/v2/device/%1/talkgroup").arg(deviceId));
    req.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("application/json"));
    const QByteArray body =
        QJsonDocument(QJsonObject{{QStringLiteral("group"), qint64(tg)}, {QStringLiteral("slot"), slot}})
            .toJson(QJsonDocument::Compact);
    qInfo().noquote() << "BM API POST talkgroup tg=" << tg << "ts=" << slot;
    QNetworkReply* reply = network->post(req, body);
    const QString label = QStringLiteral("ADD static TG %1 TS%2").arg(tg).arg(slot);
    connect(reply, &QNetworkReply::finished, this, [this, reply, label] { onActionReply(reply, label); });
}

void BmApiClient::onActionReply(QNetworkReply* reply, const QString& label)
{
    const int status = httpStatus(reply);
    const QByteArray body = reply->readAll();
    reply->deleteLater();
    const bool ok = reply->error() == QNetworkReply::NoError && status >= 200 && status <= 299;
    const QString shown = shownBody(body);
    qInfo().noquote() << "BM API" << label << "<-" << status << shown;
    QString message = ok ? QStringLiteral("%1 OK").arg(label)
                         : QStringLiteral("%1 failed: HTTP %2 — %3").arg(label).arg(status).arg(shown);
    if (status == 401)
        message += QStringLiteral("\n\nBrandMeister does not accept this API key. Make a new one on the BrandMeister "
                                  "site under your profile, \"API Keys\", and enter it under Settings → API → "
                                  "BrandMeister.");
    emit actionDone(ok, message);
}

void BmApiClient::onProfileReply(QNetworkReply* reply)
{
    const int status = httpStatus(reply);
    const QByteArray body = reply->readAll();
    reply->deleteLater();
    qInfo().noquote() << "BM API profile <-" << status << "(" << body.size() << "B)";
    if (reply->error() != QNetworkReply::NoError && body.isEmpty()) {
        emit errorReported(QStringLiteral("BM API profile fel: HTTP %1 — %2").arg(status).arg(reply->errorString()));
        return;
    }
    BmProfile profile;
    if (status >= 200 && status <= 299 && parseBmProfile(body, profile)) {
        emit profileFetched(profile);
        emit staticTalkgroups(profile.staticTalkgroups);
        return;
    }
    emit errorReported(
        QStringLiteral("BM API profile: unexpected reply (HTTP %1): %2").arg(status).arg(shownBody(body)));
}

} // namespace zl::dmr
