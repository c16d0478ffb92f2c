#pragma once

#include <QByteArray>
#include <QHostAddress>
#include <QList>
#include <QObject>
#include <QUdpSocket>

struct gsm_state;

// A loopback EchoLink node on its own address (127.0.0.2 and up) and the shared port pair: it
// answers an SDES with its own (unless muted), sends GSM audio, text and BYE, keeps what it gets.
class EchoLinkPeer : public QObject {
    Q_OBJECT

public:
    EchoLinkPeer(const QHostAddress& address, quint16 audioPort, quint16 ctrlPort, QObject* parent = nullptr);
    ~EchoLinkPeer() override;

    bool isBound() const { return bound; }
    // Two free ports, adjacent as on a real node, usable on 127.0.0.1 and the given address.
    static quint16 freePortPair(const QHostAddress& other);

    void setAnswerSdes(bool on) { answerSdes = on; }
    void setName(const QByteArray& callsignAndName) { sdesName = callsignAndName; }
    void connectTo(const QHostAddress& node); // sends one SDES
    void sendBye(const QHostAddress& node);
    void sendAudio(const QHostAddress& node, const QByteArray& datagram);
    // Encodes 640 samples (80 ms) with the node's own GSM encoder into one audio packet.
    QByteArray gsmPacket(const QByteArray& pcm640);

    QList<QByteArray> audioReceived;
    QList<QByteArray> ctrlReceived;

private:
    QByteArray controlPacket(quint8 kind) const;

    QUdpSocket audio;
    QUdpSocket ctrl;
    quint16 audioPort;
    quint16 ctrlPort;
    bool bound = false;
    bool answerSdes = true;
    QByteArray sdesName = "ZZ9ZZ          Zed";
    quint16 sequence = 0;
    gsm_state* encoder;
};
