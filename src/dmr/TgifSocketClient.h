#pragma once

#include <QJsonObject>
#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>

#include <functional>

class QNetworkAccessManager;
class QUrl;

namespace zl::dmr {

// The TGIF site's self-care page, spoken to over socket.io with Engine.IO long polling: read the
// sessions of the account's hotspots, set the talkgroup of one slot. Each request is one short
// conversation (open, handshake with the api_token, command, answer, close).
class TgifSocketClient : public QObject {
    Q_OBJECT

public:
    // One conversation, carried through its asynchronous steps.
    struct Job {
        enum class Command { FetchSessions, SetTalkgroup };
        QString label;
        Command command = Command::FetchSessions;
        int slot = 1;
        quint32 talkgroup = 0;
        QString hotspotUuid;
        QString sid;
        int pollCount = 0;
        bool authenticated = false;
        std::function<void(Job, QStringList)> onPollBody;
    };

    explicit TgifSocketClient(QObject* parent = nullptr);

    void setHost(const QString& newHost) { host = newHost.trimmed(); }
    void setToken(const QString& newToken) { token = newToken.trimmed(); }
    void fetchSessions(const QString& hotspotUuid);
    void setTalkgroup(const QString& hotspotUuid, int slot, quint32 talkgroup);

    // The server holds a poll for up to its ping interval; tests wait less.
    void setPollTimeoutForTests(int ms) { pollTimeoutMs = ms; }

signals:
    void tokenRejected();
    void sessionsFetched(const QList<QJsonObject>& sessions);
    void actionDone(bool ok, const QString& msg);
    void errorReported(const QString& msg);

private:
    QUrl url(const Job& job) const;
    void start(Job job);
    void send(const Job& job, const QString& message, const std::function<void()>& next);
    void poll(Job job);
    void afterAuth(Job job);
    void command(Job job);
    void onAnswer(Job job, const QStringList& payloads);
    void finish(const Job& job, bool ok, const QString& message);

    QNetworkAccessManager* network;
    QString host;
    QString token;
    int pollTimeoutMs = 6000;
};

} // namespace zl::dmr
