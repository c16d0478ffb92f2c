#pragma once

#include <QByteArray>
#include <QHash>
#include <QHostAddress>
#include <QObject>
#include <QString>

class QUdpSocket;

namespace zl::echolink {

class EchoLinkQso;

// Owns the two UDP sockets every EchoLink connection shares (audio 5198, control 5199) and
// hands each datagram to the connection of its sender's address. An SDES from a stranger is
// an incoming call.
class EchoLinkDispatcher : public QObject {
    Q_OBJECT

public:
    explicit EchoLinkDispatcher(QObject* parent = nullptr);

    // Tests only: other ports and a loopback address, so that the well-known ports stay free.
    void setPortsForTest(quint16 audio, quint16 ctrl, const QHostAddress& bindAddress);

    quint16 audioPort() const { return audio; }
    quint16 ctrlPort() const { return ctrl; }

    bool bind();
    void addPeer(const QString& address, EchoLinkQso* qso);
    void removePeer(EchoLinkQso* qso);
    void send(const QHostAddress& address, quint16 port, const QByteArray& bytes);

signals:
    void incomingConnection(const QHostAddress& peer, const QString& callsign);

private:
    void onAudioReadyRead();
    void onCtrlReadyRead();

    quint16 audio = 5198;
    quint16 ctrl = 5199;
    QHostAddress bindAddress{QHostAddress::AnyIPv4};
    QUdpSocket* audioSocket = nullptr;
    QUdpSocket* ctrlSocket = nullptr;
    QHash<QString, EchoLinkQso*> peers;
};

} // namespace zl::echolink
