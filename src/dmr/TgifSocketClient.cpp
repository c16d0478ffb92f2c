#include "dmr/TgifSocketClient.h"

#include "dmr/EngineIoPayload.h"
#include "dmr/WebReply.h"

#include <QDateTime>
#include <QJsonArray>
#include <QJsonDocument>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QUrl>

namespace zl::dmr {

namespace {

constexpr int kHandshakePolls = 4;
constexpr int kAnswerPolls = 4;

QString jsonString(const QString& text)
{
    const QByteArray array = QJsonDocument(QJsonArray{text}).toJson(QJsonDocument::Compact);
    return QString::fromUtf8(array.mid(1, array.size() - 2));
}

} // namespace

TgifSocketClient::TgifSocketClient(QObject* parent) : QObject(parent), network(new QNetworkAccessManager(this))
{
}

void TgifSocketClient::fetchSessions(const QString& hotspotUuid)
{
    Job job;
    job.label = QStringLiteral("TGIF sessions");
    job.hotspotUuid = hotspotUuid;
    start(job);
}

void TgifSocketClient::setTalkgroup(const QString& hotspotUuid, int slot, quint32 talkgroup)
{
    Job job;
    job.command = Job::Command::SetTalkgroup;
    job.label = talkgroup == 0 ? QStringLiteral("clear TS%1").arg(slot)
                               : QStringLiteral("set TS%1 → TG %2").arg(slot).arg(talkgroup);
    job.hotspotUuid = hotspotUuid;
    job.slot = slot;
    job.talkgroup = talkgroup;
    start(job);
}

QUrl TgifSocketClient::url(const Job& job) const
{
    QString text = QStringLiteral("https://%1/socket.io/?EIO=3&transport=polling&t=%2")
                       .arg(host)
                       .arg(QDateTime::currentMSecsSinceEpoch());
    if (!job.sid.isEmpty())
        text += QStringLiteral("&sid=") + job.sid;
    return QUrl(text);
}

void TgifSocketClient::start(Job job)
{
    if (host.isEmpty() || token.isEmpty()) {
        emit errorReported(QStringLiteral("TGIF: missing host or API token"));
        return;
    }
    QNetworkReply* reply = network->get(QNetworkRequest(url(job)));
    connect(reply, &QNetworkReply::finished, this, [this, reply, job]() mutable {
        reply->deleteLater();
        const int status = httpStatus(reply);
        const QString body = QString::fromUtf8(reply->readAll());
        const QStringList packets = decodeEngineIoPayload(body);
        const QString open = packets.value(0);
        if (status >= 200 && status <= 299 && open.startsWith(QLatin1Char('0')))
            job.sid = QJsonDocument::fromJson(open.mid(1).toUtf8()).object().value(QStringLiteral("sid")).toString();
        if (job.sid.isEmpty()) {
            finish(job, false,
                   QStringLiteral("TGIF socket: could not open session (HTTP %1): %2").arg(status).arg(body));
            return;
        }
        send(job, QStringLiteral("42[\"handshake\",%1]").arg(jsonString(token)), [this, job] { afterAuth(job); });
    });
}

void TgifSocketClient::send(const Job& job, const QString& message, const std::function<void()>& next)
{
    QNetworkRequest request(url(job));
    request.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("text/plain;charset=UTF-8"));
    QNetworkReply* reply = network->post(request, encodeEngineIoPacket(message).toUtf8());
    connect(reply, &QNetworkReply::finished, this, [this, reply, job, next] {
        reply->deleteLater();
        if (reply->error() != QNetworkReply::NoError) {
            finish(job, false,
                   QStringLiteral("TGIF socket: POST failed — %1 %2").arg(httpStatus(reply)).arg(reply->errorString()));
            return;
        }
        next();
    });
}

void TgifSocketClient::poll(Job job)
{
    ++job.pollCount;
    QNetworkRequest request(url(job));
    request.setTransferTimeout(pollTimeoutMs);
    QNetworkReply* reply = network->get(request);
    connect(reply, &QNetworkReply::finished, this, [this, reply, job] {
        reply->deleteLater();
        // A poll that the server held past the wait is an empty one, not a failure.
        if (reply->error() != QNetworkReply::NoError && reply->error() != QNetworkReply::OperationCanceledError) {
            finish(job, false, QStringLiteral("TGIF socket: poll failed — ") + reply->errorString());
            return;
        }
        const QStringList payloads = reply->error() == QNetworkReply::NoError
                                         ? decodeEngineIoPayload(QString::fromUtf8(reply->readAll()))
                                         : QStringList();
        job.onPollBody(job, payloads);
    });
}

void TgifSocketClient::afterAuth(Job job)
{
    job.pollCount = 0;
    job.onPollBody = [this](Job current, const QStringList& payloads) {
        static const QString head = QStringLiteral("42[\"status\",");
        for (const QString& payload : payloads) {
            if (!payload.startsWith(head))
                continue;
            const int status = payload.mid(head.size()).remove(QLatin1Char(']')).trimmed().toInt();
            if (status == 200) {
                current.authenticated = true;
                command(current);
            } else {
                emit tokenRejected();
                finish(current, false,
                       QStringLiteral("TGIF does not accept the api_token (status %1) — token expired or wrong.")
                           .arg(status));
            }
            return;
        }
        if (current.pollCount >= kHandshakePolls)
            finish(current, false, QStringLiteral("TGIF: no reply to handshake."));
        else
            poll(current);
    };
    poll(job);
}

void TgifSocketClient::command(Job job)
{
    const QString message =
        job.command == Job::Command::FetchSessions
            ? QStringLiteral(R"(42["cli-state",{"uuid":"","page":"self-care","action":"populate-sessions"}])")
            : QStringLiteral(R"(42["selfcare:settg",{"uuid":"%1","ts%2_talkgroup":%3}])")
                  .arg(job.hotspotUuid)
                  .arg(job.slot)
                  .arg(job.talkgroup);
    job.pollCount = 0;
    job.onPollBody = [this](Job current, const QStringList& payloads) { onAnswer(current, payloads); };
    send(job, message, [this, job] { poll(job); });
}

void TgifSocketClient::onAnswer(Job job, const QStringList& payloads)
{
    const bool sessions = job.command == Job::Command::FetchSessions;
    const QString head =
        sessions ? QStringLiteral("42[\"self-care-session\",") : QStringLiteral("42[\"selfcare:settg\",");
    for (const QString& payload : payloads) {
        if (!payload.startsWith(head))
            continue;
        if (!sessions) {
            const bool ok = payload.contains(QLatin1String("\"success\""));
            finish(job, ok, ok ? job.label + QStringLiteral(" OK") : job.label + QStringLiteral(" failed: ") + payload);
            return;
        }
        QList<QJsonObject> list;
        const QJsonArray event = QJsonDocument::fromJson(payload.mid(2).toUtf8()).array();
        for (const QJsonValue& session : event.at(1).toArray())
            list.append(session.toObject());
        emit sessionsFetched(list);
        finish(job, true, QStringLiteral("%1 OK (%2 sessions)").arg(job.label).arg(list.size()));
        return;
    }
    if (job.pollCount < kAnswerPolls)
        poll(job);
    else if (sessions)
        finish(job, false, job.label + QStringLiteral(": no reply from TGIF."));
    else
        finish(job, false, job.label + QStringLiteral(": no reply from TGIF (settg)."));
}

void TgifSocketClient::finish(const Job& job, bool ok, const QString& message)
{
    // Engine.IO close, so that the server drops the session at once; its answer does not matter.
    QNetworkRequest request(url(job));
    request.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("text/plain;charset=UTF-8"));
    QNetworkReply* reply = network->post(request, QByteArray("1:1"));
    connect(reply, &QNetworkReply::finished, reply, &QObject::deleteLater);
    qInfo().noquote() << "TGIF socket" << (ok ? "OK" : "FAIL") << job.label;
    if (ok || job.command == Job::Command::SetTalkgroup)
        emit actionDone(ok, message);
    else
        emit errorReported(message);
}

} // namespace zl::dmr
