#include "dmr/TgifApiClient.h"

#include "dmr/Peer.h"
#include "dmr/TgifLogin.h"
#include "dmr/TgifSocketClient.h"
#include "dmr/WebReply.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QVariant>

#include <utility>

namespace zl::dmr {

namespace {

constexpr quint32 kDisconnectGroup = 4000;

quint32 talkgroupOf(const QJsonValue& value)
{
    const quint32 tg = value.toVariant().toUInt();
    return tg == kDisconnectGroup ? 0 : tg;
}

} // namespace

TgifApiClient::TgifApiClient(QObject* parent)
    : QObject(parent), network(new QNetworkAccessManager(this)), socket(new TgifSocketClient(this)),
      loginPage(new TgifLogin(this))
{
    qRegisterMetaType<zl::dmr::TgifStatus>();
    network->setRedirectPolicy(QNetworkRequest::NoLessSafeRedirectPolicy);
    connect(socket, &TgifSocketClient::sessionsFetched, this, &TgifApiClient::onSessionsFetched);
    connect(socket, &TgifSocketClient::actionDone, this, &TgifApiClient::actionDone);
    connect(socket, &TgifSocketClient::errorReported, this, &TgifApiClient::errorReported);
    connect(socket, &TgifSocketClient::tokenRejected, this, [this] {
        qWarning().noquote() << "TGIF: token rejected — logging in again";
        token.clear();
        if (const std::function<void()> again = std::exchange(retry, {}))
            runWithToken(again);
    });
}

void TgifApiClient::setHost(const QString& server)
{
    host = server.section(QLatin1Char(':'), 0, 0).trimmed();
    webHost = host;
    socket->setHost(webHost);
}

void TgifApiClient::setPortsForTests(quint16 webPort, quint16 side)
{
    webHost = QStringLiteral("%1:%2").arg(host).arg(webPort);
    sidePort = side;
    socket->setHost(webHost);
}

void TgifApiClient::setAccount(const QString& name, const QString& call, const QString& pass, const QString& tok)
{
    keyName = name;
    callsign = call;
    password = pass;
    token = tok.trimmed();
    socket->setToken(token);
}

bool TgifApiClient::ready()
{
    if (!host.isEmpty() && hotspotId != 0)
        return true;
    emit errorReported(QStringLiteral("TGIF API: missing host/hotspot ID"));
    return false;
}

void TgifApiClient::fetchStatus()
{
    if (!ready())
        return;
    QNetworkRequest request(QUrl(QStringLiteral("https://%1/RPTRR/index.php?action=getsessions").arg(webHost)));
    request.setRawHeader("Accept", "application/json");
    qInfo().noquote() << "TGIF API GET getsessions for" << hotspotId;
    QNetworkReply* reply = network->get(request);
    connect(reply, &QNetworkReply::finished, this, [this, reply] {
        reply->deleteLater();
        const int status = httpStatus(reply);
        const QByteArray body = reply->readAll();
        if (reply->error() != QNetworkReply::NoError) {
            emit errorReported(
                QStringLiteral("TGIF API status error: HTTP %1 — %2").arg(status).arg(reply->errorString()));
            return;
        }
        const QJsonDocument doc = QJsonDocument::fromJson(body);
        if (!doc.isArray()) {
            emit errorReported(
                QStringLiteral("TGIF API status: unexpected reply (HTTP %1): %2").arg(status).arg(shownBody(body)));
            return;
        }
        TgifStatus st;
        for (const QJsonValue& value : doc.array()) {
            const QJsonObject session = value.toObject();
            if (session.value(QStringLiteral("repeater_id")).toVariant().toUInt() != hotspotId)
                continue;
            st = {true, talkgroupOf(session.value(QStringLiteral("tg0"))),
                  talkgroupOf(session.value(QStringLiteral("tg")))};
            break;
        }
        qInfo().noquote() << "TGIF API status <- connected" << st.connected << "TS1" << st.ts1Talkgroup << "TS2"
                          << st.ts2Talkgroup;
        emit statusFetched(st);
    });
}

void TgifApiClient::setTalkgroup(int slot, quint32 talkgroup)
{
    if (!ready())
        return;
    const QString url = QStringLiteral("http://%1:%2/api/sessions/update/%3/%4/%5")
                            .arg(host)
                            .arg(sidePort)
                            .arg(hotspotId)
                            .arg(slot == 1 ? 0 : 1)
                            .arg(talkgroup);
    QNetworkRequest request{QUrl(url)};
    request.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("application/x-www-form-urlencoded"));
    qInfo().noquote() << "TGIF API GET" << url;
    const QString label = talkgroup == 0 ? QStringLiteral("clear TS%1").arg(slot)
                                         : QStringLiteral("set TS%1 → TG %2").arg(slot).arg(talkgroup);
    QNetworkReply* reply = network->get(request);
    connect(reply, &QNetworkReply::finished, this, [this, reply, label] {
        reply->deleteLater();
        const int status = httpStatus(reply);
        const QByteArray body = reply->readAll().trimmed();
        // The side port answers with the status as its body, whatever the HTTP status says.
        const bool ok = reply->error() == QNetworkReply::NoError && (body == "200" || (status >= 200 && status <= 299));
        const QString shown = shownBody(body);
        qInfo().noquote() << "TGIF API" << label << "<-" << status << shown;
        QString message = ok ? QStringLiteral("%1 OK").arg(label)
                             : QStringLiteral("%1 failed: HTTP %2 — %3").arg(label).arg(status).arg(shown);
        if (body == "404")
            message += QStringLiteral("\n\nTGIF refused: the peer must be logged in to TGIF (green dot), have pinged "
                                      "within 5 minutes, and the request must come from the same IP as the login.");
        emit actionDone(ok, message);
    });
}

void TgifApiClient::withToken(const std::function<void()>& action)
{
    retry = action;
    runWithToken(action);
}

void TgifApiClient::runWithToken(const std::function<void()>& action)
{
    if (!token.isEmpty()) {
        action();
        return;
    }
    loginPage->loginThen(
        webHost, callsign, password,
        [this, action](const QString& t) {
            token = t.trimmed();
            socket->setToken(token);
            if (!keyName.isEmpty())
                storeTgifToken(keyName, token);
            action();
        },
        [this](const QString& msg) {
            qWarning().noquote() << "TgifApiClient:" << msg;
            emit errorReported(msg);
            emit actionDone(false, msg);
        });
}

void TgifApiClient::onSessionsFetched(const QList<QJsonObject>& sessions)
{
    TgifStatus st;
    for (const QJsonObject& session : sessions) {
        if (session.value(QStringLiteral("uuid")).toVariant().toString() != QString::number(hotspotId))
            continue;
        const QString state = session.value(QStringLiteral("state")).toVariant().toString();
        st = {state == QLatin1String("live") || state == QLatin1String("1"),
              talkgroupOf(session.value(QStringLiteral("ts1_talkgroup"))),
              talkgroupOf(session.value(QStringLiteral("ts2_talkgroup")))};
        break;
    }
    qInfo().noquote() << "TGIF socket status: connected" << st.connected << "TS1" << st.ts1Talkgroup << "TS2"
                      << st.ts2Talkgroup;
    emit statusFetched(st);
}

} // namespace zl::dmr
