#pragma once

#include <QByteArray>
#include <QElapsedTimer>
#include <QHostAddress>
#include <QObject>
#include <QString>

class QTimer;
class QUdpSocket;

namespace zl::iax {

struct FullFrame;

// One IAX2 call to an AllStar node, as a softphone makes it: NEW (with call token and MD5
// authentication when asked), voice in mu-law, DTMF for the node's commands, HANGUP. No
// registration and no retransmission.
class IaxClient : public QObject {
    Q_OBJECT

public:
    enum class State { Disconnected = 0, Connecting = 1, Up = 2 };
    Q_ENUM(State)

    explicit IaxClient(QObject* parent = nullptr);

    void setAccount(const QString& host, int port, const QString& username, const QString& password,
                    const QString& node, const QString& callsign);
    // Tests only: a shorter keep-alive interval.
    void setPingIntervalForTest(int ms);

    State state() const { return currentState; }
    quint16 sourceCallNumber() const { return srcCall; }
    quint16 localPort() const;

    void call();
    void hangup();
    void sendDtmf(const QString& digits);

public slots:
    // One frame of 8 kHz 16-bit little-endian PCM from the microphone; sent as it comes.
    void pushPcm(const QByteArray& pcm);

signals:
    void stateChanged(zl::iax::IaxClient::State s);
    void pcmReady(const QByteArray& pcm);
    void errorReported(const QString& reason);

private:
    void onReadyRead();
    void onPing();
    void handleDatagram(const QByteArray& datagram);
    void handleFullFrame(const FullFrame& frame);
    void handleIaxFrame(const FullFrame& frame);
    void sendFull(quint8 type, quint32 subclass, const QByteArray& payload = {});
    void sendAck(const FullFrame& received);
    void sendNew(const QByteArray& token);
    void setState(State s);

    QString host;
    QString username;
    QString password;
    QString node;
    QString callsign;
    int port = 4569;
    QHostAddress peer;
    QUdpSocket* socket = nullptr;
    QTimer* pingTimer;
    QElapsedTimer callClock;
    State currentState = State::Disconnected;
    quint16 srcCall = 1;
    quint16 dstCall = 0;
    quint8 oseq = 0;
    quint8 iseq = 0;
    bool voiceStarted = false;
};

} // namespace zl::iax
