#pragma once

#include <QByteArray>
#include <QObject>
#include <QString>
#include <QStringList>

class QNetworkAccessManager;
class QTcpSocket;
class QTimer;

namespace zl::pocsag {

struct DapnetLine;

// A DAPNET core seen as a paging transmitter sees it: logged in with a transmitter name and
// auth key, it hears every page scheduled for that transmitter's group. Pages go out the other
// way, through the network's REST interface with the user's account; the two need nothing of
// each other.
class DapnetClient : public QObject {
    Q_OBJECT

public:
    enum class State { Disconnected = 0, Connecting = 1, LoggingIn = 2, LoggedIn = 3, Failed = 4 };
    Q_ENUM(State)

    explicit DapnetClient(QObject* parent = nullptr);
    ~DapnetClient() override;

    void setServer(const QString& host, quint16 port);
    void setTransmitter(const QString& name, const QString& authKey);
    void setAccount(const QString& username, const QString& password);
    void sendCall(const QString& text, const QStringList& callsigns, const QStringList& groups, bool emergency);

    State state() const { return currentState; }
    QString statusText() const;
    QString lastErrorText() const { return lastError; }

    // Tests run the reconnect waits this many times faster and send calls to a loopback
    // endpoint in place of the network's.
    void setTimersForTests(int speedup) { timerSpeedup = speedup; }
    void setApiBaseForTests(const QString& base) { apiBase = base; }

public slots:
    void start();
    void stop();

signals:
    void stateChanged(zl::pocsag::DapnetClient::State s);
    void errorReported(const QString& reason);
    void pageReceived(uint ric, int type, int func, const QString& text);
    void scheduleReceived(const QString& schedule);
    void callResult(bool ok, const QString& message);

private slots:
    void onConnected();
    void onDisconnected();
    void onReadyRead();
    void onSocketError();
    void onReconnectTick();

private:
    void setState(State s);
    void fail(const QString& reason);
    void handleLine(const QByteArray& line);
    void handleMessage(const QByteArray& line, const DapnetLine& message);
    // The wait before the next attempt: it grows only with logins the core refused.
    int reconnectDelayMs() const;
    void startReconnectTimer();

    QTcpSocket* socket;
    QTimer* reconnectTimer;
    QByteArray rxBuffer;
    QString host;
    quint16 port = 43434;
    QString txName;
    QString authKey;
    State currentState = State::Disconnected;
    QString lastError;
    bool running = false;
    int loginFailures = 0;
    QNetworkAccessManager* network;
    QString username;
    QString password;
    QString apiBase;
    int timerSpeedup = 1;
};

} // namespace zl::pocsag
