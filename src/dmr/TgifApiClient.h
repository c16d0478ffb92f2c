#pragma once

#include <QJsonObject>
#include <QMetaType>
#include <QObject>
#include <QString>

#include <functional>

class QNetworkAccessManager;

namespace zl::dmr {

class TgifLogin;
class TgifSocketClient;

// What TGIF reports of a hotspot: logged in or not, and the one talkgroup on each slot.
struct TgifStatus {
    bool connected = false;
    quint32 ts1Talkgroup = 0;
    quint32 ts2Talkgroup = 0;
};

// The talkgroups of one hotspot on TGIF: read from the network's sessions list, set through the
// side port of its server. The socket client and the login are for the web site's self-care page.
class TgifApiClient : public QObject {
    Q_OBJECT

public:
    explicit TgifApiClient(QObject* parent = nullptr);

    void setHost(const QString& server);
    void setHotspotId(quint32 id) { hotspotId = id; }
    // The account of the named key (its name is where a fetched token is kept).
    void setAccount(const QString& keyName, const QString& callsign, const QString& password, const QString& token);

    void fetchStatus();
    void setTalkgroup(int slot, quint32 talkgroup);
    // Runs action at once with a token, after a login without one.
    void withToken(const std::function<void()>& action);
    TgifSocketClient* socketClient() const { return socket; }

    // The service's ports are fixed; loopback servers in tests are not.
    void setPortsForTests(quint16 webPort, quint16 sidePort);

signals:
    void statusFetched(const zl::dmr::TgifStatus& st);
    void actionDone(bool ok, const QString& msg);
    void errorReported(const QString& msg);

private:
    bool ready();
    void runWithToken(const std::function<void()>& action);
    void onSessionsFetched(const QList<QJsonObject>& sessions);

    QNetworkAccessManager* network;
    TgifSocketClient* socket;
    TgifLogin* loginPage;
    QString host;
    QString webHost;
    quint16 sidePort = 5040;
    quint32 hotspotId = 0;
    QString keyName;
    QString callsign;
    QString password;
    QString token;
    // The last job that needs a token: run once more after a rejected token and a new login.
    std::function<void()> retry;
};

} // namespace zl::dmr

Q_DECLARE_METATYPE(zl::dmr::TgifStatus)
