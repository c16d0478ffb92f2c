#pragma once

#include "aprs/AprsPacket.h"

#include <QByteArray>
#include <QHash>
#include <QObject>
#include <QString>

#include <functional>

class QTcpSocket;
class QTimer;

namespace zl::aprs {

// The published APRS-IS passcode of a callsign; the SSID does not count.
int passcode(const QString& callsign);

// One TCP connection to an APRS-IS server: login with the passcode, received lines parsed,
// positions, messages and acks sent, and sent messages tracked until they are acked, rejected
// or given up.
class AprsClient : public QObject {
    Q_OBJECT

public:
    enum class State { Disconnected = 0, Resolving = 1, Connecting = 2, LoggedIn = 3, Failed = 4 };
    Q_ENUM(State)

    explicit AprsClient(QObject* parent = nullptr);
    ~AprsClient() override;

    void setServer(const QString& host, quint16 port);
    void setCallsign(const QString& callsign);
    void setFilter(const QString& filter);
    void setVersion(const QString& version);
    // Writes a line as it stands while the socket is connected.
    void sendRaw(const QByteArray& line);

    State state() const { return currentState; }
    QString statusText() const;
    QString lastErrorText() const { return lastError; }
    QByteArray loginLine() const;
    // A message to this callsign, with or without its SSID, is for this station.
    bool isForMe(const QString& addressee) const;

    // Tests step the wall clock and shorten the retry tick and the reconnect wait.
    void setClockForTests(std::function<qint64()> now) { clock = std::move(now); }
    void setTimersForTests(int retryTickMs, int reconnectMs);

public slots:
    void start();
    void stop();
    void sendPosition(double latitudeDeg, double longitudeDeg, ulong symbolTable, ulong symbolCode,
                      const QString& comment);
    void sendMessage(const QString& destCallsign, const QString& body, const QString& msgId);
    void sendAck(const QString& destCallsign, const QString& msgId);
    // The id given to the message, empty when nothing was sent.
    QString sendTrackedMessage(const QString& destCallsign, const QString& body);

signals:
    void messageStatus(const QString& msgId, const QString& dest, const QString& status);
    void loginResult(bool verified, const QString& serverLine);
    void stateChanged(zl::aprs::AprsClient::State s);
    void errorReported(const QString& reason);
    void packetReceived(const zl::aprs::ParsedPacket& p);
    void rawLine(const QByteArray& line);

private slots:
    void onConnected();
    void onDisconnected();
    void onReadyRead();
    void onSocketError();
    void onReconnectTick();
    void onRetryTick();

private:
    struct TrackedMessage {
        QString dest;
        QString body;
        qint64 lastSentMs = 0;
        int tries = 0;
    };

    void setState(State s);
    void fail(const QString& reason);
    void handleLine(const QByteArray& line);
    void handleMessage(ParsedPacket& packet);
    bool writeLine(const QByteArray& line);

    QHash<QString, TrackedMessage> tracked;
    QTimer* retryTimer;
    int lastMsgId = 0;
    qint64 loginAtMs = 0;
    int quickCloses = 0;
    QHash<QString, qint64> seenMessages;
    QTcpSocket* socket;
    QTimer* reconnectTimer;
    QByteArray rxBuffer;
    QString host;
    quint16 port = 14580;
    QString callsign;
    QString filter = QStringLiteral("t/m");
    QString version = QStringLiteral("0.1");
    State currentState = State::Disconnected;
    QString lastError;
    bool running = false;
    std::function<qint64()> clock;
};

} // namespace zl::aprs
