#pragma once

#include <QByteArray>
#include <QHostAddress>
#include <QObject>
#include <QString>

#include "app/ReconnectBackoff.h"

class QTimer;
class QUdpSocket;

namespace zl::m17 {

// Link to one module of an M17 reflector over UDP: CONN/ACKN, PING/PONG keep-alive, DISC.
// Received stream frames go out as voiceFrameRx; sendFrame writes frames while linked.
// A link lost to silence, to a DISC from the reflector or to an unanswered CONN is tried
// again with a growing wait until disconnectFromReflector(); a NACK ends it for good.
class M17Client : public QObject {
    Q_OBJECT

public:
    enum class State {
        NotLinked = 0,
        Linking = 1,
        Linked = 2,
        Unlinking = 3,
        Rejected = 4,
        Failed = 5,
        Reconnecting = 6
    };
    Q_ENUM(State)

    // The reflector answers CONN within the link timeout and pings at least once per watchdog
    // interval; tests shorten both.
    struct Timing {
        int linkTimeoutMs = 10000;
        int pingWatchdogMs = 30000;
        // The reconnect waits are divided by this.
        int backoffSpeedup = 1;
    };

    explicit M17Client(QObject* parent = nullptr);
    ~M17Client() override;

    bool linkTo(const QString& host, quint16 port, const QString& callsign, char module);
    void disconnectFromReflector();
    State state() const { return currentState; }
    void sendFrame(const QByteArray& frame);

    void setTiming(const Timing& timing) { this->timing = timing; }
    // Milliseconds until the next attempt while Reconnecting, else 0.
    int reconnectInMs() const;

signals:
    void stateChanged(zl::m17::M17Client::State s);
    void info(const QString& msg);
    void rejected(const QString& reason);
    void voiceFrameRx(const QByteArray& frame);
    // While Reconnecting, once when the wait starts and every second after.
    void reconnectCountdown(int remainingMs);

private slots:
    void onReadyRead();
    void onLinkTimeout();
    void onPingWatchdog();
    void onRetry();

private:
    void setState(State s);
    void sendConn();
    void sendControl(const char* tag);
    void handleDatagram(const QByteArray& datagram);
    void scheduleReconnect(const QString& why);

    QUdpSocket* socket;
    QTimer* linkTimer;
    QTimer* pingWatchdog;
    QTimer* retryTimer;
    QTimer* countdownTimer;
    ReconnectBackoff backoff;
    bool relinking = false;
    QHostAddress peer;
    quint16 peerPort = 0;
    QString callsign;
    char module = ' ';
    State currentState = State::NotLinked;
    Timing timing;
};

} // namespace zl::m17
