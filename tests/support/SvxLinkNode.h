#pragma once

#include <QByteArray>
#include <QHostAddress>
#include <QObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QUdpSocket>

// Debian's svxlink-server as a real EchoLink node on 127.0.0.2 (its QSO ports are fixed at
// 5198/5199). Its receiver and transmitter are UDP audio devices: samples sent to rxPort()
// open its VOX squelch and go out to the EchoLink peer; what it transmits (the peer's audio)
// arrives here as 16 kHz 16-bit samples. Its directory is expected at 127.0.0.4:5200.
class SvxLinkNode : public QObject {
    Q_OBJECT

public:
    static const QHostAddress kAddress;
    static const QHostAddress kDirectoryAddress;

    explicit SvxLinkNode(QObject* parent = nullptr);
    ~SvxLinkNode() override;

    // Empty when the program can be run here, otherwise why not.
    static QString unavailableReason();

    bool start();
    // SIGTERM to the process started here, by its id; it says goodbye to its peers.
    void terminate();

    // 16 kHz little-endian samples into its receiver.
    void sendToReceiver(const QByteArray& pcm16k);
    QByteArray takeTransmitted();
    qsizetype transmittedBytes() const { return transmitted.size(); }
    QString output() const { return log; }

private:
    QTemporaryDir dir;
    QProcess process;
    QUdpSocket txSink;
    QUdpSocket rxFeed;
    quint16 rxPort = 0;
    QByteArray transmitted;
    QString log;
};
