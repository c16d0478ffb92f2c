#pragma once

#include "SvxTestCa.h"

#include <QByteArray>
#include <QHash>
#include <QHostAddress>
#include <QList>
#include <QObject>
#include <QSslSocket>
#include <QStringList>
#include <QTcpServer>
#include <QTimer>
#include <QUdpSocket>

// A loopback SvxLink reflector speaking protocol versions 2 and 3 as the SvxLink reflector
// does. Control frames are a u32 length, a u16 type and the payload, all big-endian.
// Version 2 logs in by an HMAC-SHA1 challenge over the node's password. Version 3 offers
// its CA, hands out the CA bundle, moves the connection to TLS, accepts nodes whose client
// certificate it issued, and enrols the others: it asks for their request, checks the
// password by the same challenge and sends back the signed certificate. Audio datagrams
// are relayed to the nodes on the talker's talk group; version 3 datagrams are sealed
// with AES-128-GCM under the key each node sent in its node information.
class SvxReflector : public QObject {
    Q_OBJECT

public:
    struct Node {
        QSslSocket* socket = nullptr;
        QByteArray rx;
        int version = 0;
        QString callsign;
        quint16 clientId = 0;
        bool loggedIn = false;
        QByteArray challenge;
        quint32 tg = 0;
        QList<quint32> monitored;
        QList<quint32> selections; // every MsgSelectTg, in order
        QHostAddress udpAddress;
        quint16 udpPort = 0;
        QByteArray udpKey;
        QByteArray ivRand;
        QString nodeInfo;
        quint32 txCounter = 1;
        quint32 rxCounter = 0; // highest counter opened; a datagram not above it is a replay
        QByteArray csr;
        QList<QByteArray> sentDatagrams; // as they went out, sealed in version 3
    };
    struct Frame {
        quint16 type = 0;
        QByteArray payload;
    };

    explicit SvxReflector(QObject* parent = nullptr);
    ~SvxReflector() override;

    quint16 port() const { return server->serverPort(); }
    // Node passwords by callsign; a callsign without one is refused.
    void setPassword(const QString& callsign, const QString& password) { passwords.insert(callsign, password); }
    void setCodecs(const QStringList& list) { codecs = list; }
    // A reflector of an older release asks newer nodes to downgrade to this version.
    void setHighestVersion(quint16 major) { highestVersion = major; }
    // The certificate the reflector presents in TLS; by default one of its own CA for 127.0.0.1.
    void setServerCertificate(const SvxTestCa::Issued& issued) { serverCert = issued; }
    SvxTestCa& ca() { return authority; }
    // Silent: nothing is sent or answered any more on TCP or UDP.
    void setTcpSilent(bool on) { tcpSilent = on; }
    void setUdpSilent(bool on) { udpSilent = on; }
    // Reflector heartbeats on TCP and UDP; 0 switches them off.
    void setHeartbeatInterval(int ms) { ms > 0 ? heartbeat.start(ms) : heartbeat.stop(); }

    QList<Node*> nodes() const { return connected; }
    Node* node(const QString& callsign) const;
    // Frames and raw bytes to every logged-in node, or to one.
    void broadcast(quint16 type, const QByteArray& payload);
    void sendRaw(Node* n, const QByteArray& bytes) { n->socket->write(bytes); }
    // Opus audio of a station that isn't a node of ours, heard on talk group tg.
    void sendAudio(Node* n, const QByteArray& opusPacket);
    void sendUdpRaw(Node* n, const QByteArray& datagram) { udp.writeDatagram(datagram, n->udpAddress, n->udpPort); }
    // Drops every connection, as a restart of the reflector does.
    void dropAll();

    QList<Frame> receivedFrames;         // every control frame from any node
    QList<QByteArray> receivedDatagrams; // every datagram, before opening
    QList<QByteArray> receivedAudio;     // Opus packets of audio messages, any node
    QStringList talkerLog;               // "start tg callsign" / "stop tg callsign"

    static QByteArray u16(quint16 v) { return QByteArray(1, char(v >> 8)) + char(v); }
    static QByteArray u32(quint32 v) { return u16(quint16(v >> 16)) + u16(quint16(v)); }
    static QByteArray str(const QString& s) { return u16(quint16(s.toUtf8().size())) + s.toUtf8(); }
    static QByteArray frame(quint16 type, const QByteArray& payload)
    {
        return u32(quint32(payload.size() + 2)) + u16(type) + payload;
    }

signals:
    void nodeLoggedIn(const QString& callsign);

private:
    void onNewConnection();
    void onReadyRead(Node* n);
    void onDisconnected(Node* n);
    void handle(Node* n, const Frame& f);
    void handleAuthResponse(Node* n, const QByteArray& payload);
    void login(Node* n);
    void send(Node* n, quint16 type, const QByteArray& payload = {});
    void onUdp();
    void handleUdp(Node* n, quint16 type, const QByteArray& payload);
    void sendUdp(Node* n, quint16 type, const QByteArray& payload);
    void onHeartbeat();
    QByteArray challengeFor(Node* n);

    QTcpServer* server;
    QUdpSocket udp;
    QTimer heartbeat;
    QList<Node*> connected;
    QHash<QString, QString> passwords;
    QStringList codecs{QStringLiteral("OPUS")};
    SvxTestCa authority;
    SvxTestCa::Issued serverCert;
    quint16 nextClientId = 100;
    QHash<quint32, QString> talkers; // talk group -> talking node
    quint16 udpSeq = 0;
    quint16 highestVersion = 3;
    bool tcpSilent = false;
    bool udpSilent = false;
};
