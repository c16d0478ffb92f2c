#pragma once

#include "GsmCodec.h"

#include <QByteArray>
#include <QHostAddress>
#include <QObject>
#include <QString>

#include <functional>

class QTimer;

namespace zl::echolink {

// One EchoLink connection: SDES keep-alive and time-out, GSM audio both ways, info and chat
// text. Datagrams arrive through the dispatcher and leave through sendDatagram.
class EchoLinkQso : public QObject {
    Q_OBJECT

public:
    enum class State { Disconnected = 0, Connecting = 1, Connected = 2 };
    Q_ENUM(State)

    using SendFunction = std::function<void(const QHostAddress&, quint16, const QByteArray&)>;

    // A node sends SDES every 10 s and is gone after 50 s without one; tests shorten both.
    struct Timing {
        int keepaliveMs = 10000;
        int timeoutMs = 50000;
    };

    explicit EchoLinkQso(QObject* parent = nullptr);

    void setSendFunction(SendFunction send) { sendDatagram = std::move(send); }
    void setCallsign(const QString& own) { callsign = own.toUpper(); }
    void setName(const QString& operatorName) { name = operatorName; }
    void setDescription(const QString& text) { description = text; }
    void setPorts(quint16 audio, quint16 ctrl);
    void setTiming(const Timing& timing);

    State state() const { return currentState; }
    QHostAddress peerAddress() const { return peer; }

    bool connectTo(const QString& address);
    void acceptIncoming(const QHostAddress& address);
    void disconnect();
    void sendChat(const QString& text);

public slots:
    // 8 kHz 16-bit PCM from the microphone, any length; sent in packets of 80 ms.
    void pushPcm(const QByteArray& pcm);
    void onAudioDatagram(const QByteArray& datagram);
    void onCtrlDatagram(const QByteArray& datagram);

signals:
    void stateChanged(zl::echolink::EchoLinkQso::State s);
    // 640 samples of 8 kHz 16-bit little-endian PCM per audio packet.
    void pcmReady(const QByteArray& pcm);
    void chatReceived(const QString& line);
    void infoReceived(const QString& text);
    void errorReported(const QString& reason);

private:
    void onKeepalive();
    void onTimeout();
    void hangUp();
    void setState(State s);
    void send(quint16 port, const QByteArray& bytes);
    void sendSdes();
    void startTimers();
    void stopTimers();

    SendFunction sendDatagram;
    QString callsign;
    QString name;
    QString description;
    quint16 audioPort = 5198;
    quint16 ctrlPort = 5199;
    QHostAddress peer;
    State currentState = State::Disconnected;
    QTimer* keepaliveTimer;
    QTimer* timeoutTimer;
    int connectRetries = 0;
    GsmCodec gsm;
    QByteArray txBuffer;
    quint16 txSeq = 0;
    QByteArray sdesPacket;
};

} // namespace zl::echolink
