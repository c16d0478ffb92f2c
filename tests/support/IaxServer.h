#pragma once

#include <QByteArray>
#include <QHash>
#include <QHostAddress>
#include <QList>
#include <QObject>
#include <QUdpSocket>

// A loopback IAX2 server as Asterisk behaves for a call to an app_rpt node: NEW without a
// token is answered CALLTOKEN (when tokens are required), NEW is then challenged with AUTHREQ
// (MD5) or accepted, or rejected with or without a cause; an accepted call gets ACCEPT and
// ANSWER. DTMF frames are echoed back; voice is kept. Every frame the client sends is
// acknowledged as a real server would and recorded in its decoded form.
class IaxServer : public QObject {
    Q_OBJECT

public:
    struct Frame {
        bool full = false;
        quint16 srcCall = 0;
        quint16 dstCall = 0;
        quint32 timestamp = 0;
        quint8 oseq = 0;
        quint8 iseq = 0;
        quint8 type = 0;
        quint8 subclass = 0; // as on the wire
        QHash<quint8, QByteArray> ies;
        QByteArray payload;
    };

    enum class Answer { Accept, RejectWithCause, RejectWithoutCause, Silent };

    explicit IaxServer(QObject* parent = nullptr);

    quint16 port() const { return socket.localPort(); }
    void setRequireCallToken(bool on) { requireToken = on; }
    void setPassword(const QByteArray& secret) { password = secret; }
    void setAnswer(Answer a) { answer = a; }

    // Sends a frame to the client of the current call.
    void sendFull(quint8 type, quint8 subclass, const QByteArray& payload = {}, quint32 timestamp = 0);
    void sendRaw(const QByteArray& datagram);
    void sendMini(const QByteArray& audio);

    QList<Frame> received;
    quint16 ourCall = 0x1234;
    QByteArray token = "tok-5678";
    QByteArray challenge = "314159265";

private:
    void onReadyRead();
    void handle(const Frame& frame);

    QUdpSocket socket;
    QHostAddress client;
    quint16 clientPort = 0;
    quint16 clientCall = 0;
    quint8 oseq = 0;
    quint8 iseq = 0;
    bool requireToken = false;
    QByteArray password;
    Answer answer = Answer::Accept;
};
