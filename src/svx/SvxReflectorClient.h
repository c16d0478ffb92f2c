#pragma once

#include "svx/SvxAudio.h"
#include "svx/SvxPki.h"
#include "svx/SvxReplayWindow.h"
#include "svx/SvxUdpCipher.h"

#include <QAbstractSocket>
#include <QByteArray>
#include <QElapsedTimer>
#include <QHostAddress>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QSet>
#include <QSslError>
#include <QString>
#include <QStringList>

class QDnsLookup;
class QSslSocket;
class QTimer;
class QUdpSocket;

namespace zl::svx {

struct Frame;

// One node on an SvxLink reflector, protocol version 2 or 3: the TCP control channel
// (moved to TLS in version 3), the UDP audio channel with Opus at 16 kHz, and the
// certificate enrolment. Speech leaves as 8 kHz frames through pcmReady; the microphone's
// 8 kHz frames come in through pushMicPcm.
class SvxReflectorClient : public QObject {
    Q_OBJECT

public:
    enum class State { Disconnected = 0, Connecting = 1, Authenticating = 2, Connected = 3, Failed = 4 };
    Q_ENUM(State)

    // Heartbeat tick and reconnect delay; tests shorten them.
    struct Timing {
        int tickMs = 1000;
        int reconnectMs = 10000;
    };

    explicit SvxReflectorClient(QObject* parent = nullptr);
    ~SvxReflectorClient() override;

    void setServer(const QString& host, quint16 port);
    void setCallsign(const QString& callsign);
    void setAuthKey(const QString& key) { authKey = key; }
    void setTxTalkGroup(quint32 tg) { txTg = tg; }
    void setMonitorTalkGroups(const QList<quint32>& tgs) { monitorTgs = tgs; }
    void setHangTime(int seconds) { hangTimeSec = seconds; }
    void setNodeInfo(const QString& json) { nodeInfoJson = json; }
    void setUdpHeartbeat(int seconds);
    void setProtocolV3(bool on);
    void setAutoPki(bool on, const QString& dir);
    void setCertFields(const QString& email, const QString& description);
    void setCertName(const QString& name) { certName = name; }
    void setTlsFiles(const QString& caFile, const QString& certFile, const QString& keyFile);
    void setTiming(const Timing& t);

    State state() const { return currentState; }
    QStringList nodes() const;
    QString statusText() const;
    QString lastErrorText() const { return lastError; }
    QString nodeCallsign() const { return callsign; }
    // Where the reflector sends our audio.
    quint16 localUdpPort() const;
    const SvxPki& pkiFiles() const { return pki; }

public slots:
    void start();
    void stop();
    void selectTalkGroup(uint tg) { txTg = tg; }
    void pushMicPcm(const QByteArray& pcm160);
    void setTalking(bool on);

signals:
    void stateChanged(zl::svx::SvxReflectorClient::State s);
    void errorReported(const QString& reason);
    void talkerStart(uint tg, const QString& callsign);
    void talkerStop(uint tg, const QString& callsign);
    void pcmReady(const QByteArray& pcm160);
    void nodesUpdated(const QStringList& callsigns);

private slots:
    void onCtrlConnected();
    void onCtrlReadyRead();
    void onCtrlDisconnected();
    void onCtrlError();
    void onCtrlEncrypted();
    void onSslErrors(const QList<QSslError>& errors);
    void onUdpReadyRead();
    void onHeartbeatTick();
    void onReconnectTick();
    void resolveAndConnect();
    void connectHostPort(const QString& targetHost, quint16 targetPort);

private:
    void resetLinkState();
    void dropDatagram(const QString& why);
    void setState(State s);
    void fail(const QString& reason);
    void sendCtrl(quint16 type, const QByteArray& payload = {});
    void sendUdp(quint16 type, const QByteArray& payload, bool initial = false);
    void sendSelectTg(quint32 tg);
    void dispatch(const Frame& frame);
    void handleAuthChallenge(const QByteArray& payload);
    void handleServerInfo(const QByteArray& payload);
    void handleNodeChange(quint16 type, const QByteArray& payload);
    void handleTalker(quint16 type, const QByteArray& payload);
    void handleError(const QByteArray& payload);
    void handleProtoVerDowngrade(const QByteArray& payload);
    void handleClientCsrRequest();
    void handleClientCert(const QByteArray& payload);
    void handleCaBundle(const QByteArray& payload);
    void nodeInfoStep();
    void startTls();
    void monitorFollow(quint32 tg);
    void handleDatagram(const QByteArray& datagram, const QHostAddress& from, quint16 fromPort);
    void setNodes(const QSet<QString>& list);
    bool useCaBundleFile() const;

    QSslSocket* ctrlSocket;
    QUdpSocket* udpSocket;
    QTimer* heartbeatTimer;
    QTimer* reconnectTimer;
    QPointer<QDnsLookup> dnsLookup;
    QByteArray rxBuffer;
    QSet<QString> nodeSet;
    QString host;
    quint16 port = 5300;
    QString callsign;
    QString authKey;
    quint32 currentTg = 0;
    quint32 idleTg = 0; // no setter: the fallback is no talk group at all
    quint32 txTg = 0;
    QList<quint32> monitorTgs;
    int hangTimeSec = 30;
    int holdLeftSec = 0;
    QString nodeInfoJson;
    QHostAddress peerAddress;
    quint16 clientId = 0;
    quint16 udpSeq = 0;
    bool talking = false;
    QByteArray txPcm16k;
    qint16 prevMicSample = 0;
    bool running = false;
    bool wantV3 = false; // as configured; a v2-only reflector makes useV3 false for one connection
    bool useV3 = false;
    bool useClientCert = false;
    bool autoPki = false;
    QString pkiDir;
    QString certEmail;
    QString certDesc;
    QString certName;
    SvxPki pki;
    QString tlsCaFile;
    QString tlsCertFile;
    QString tlsKeyFile;
    bool tlsUp = false;
    SvxUdpCipher udpCipher;
    SvxReplayWindow replayWindow;
    quint32 udpCounter = 1;
    bool udpEncryptionStarted = false;
    bool udpVerified = false;
    bool firstAudioLogged = false;
    int ticksSinceTcpTx = 0;
    int ticksSinceTcpRx = 0;
    int ticksSinceUdpTx = 0;
    int ticksSinceUdpRx = 0;
    int udpHeartbeatSec = 15;
    State currentState = State::Disconnected;
    QString lastError;
    // Set when lastError came from the reflector (or its silence) in this attempt: the socket
    // error that follows, "remote host closed", must not hide it.
    bool reasonFromReflector = false;
    int droppedDatagrams = 0;
    qint64 lastDropLogMs = -1;
    QElapsedTimer dropClock;
    OpusEncoderPtr encoder;
    OpusDecoderPtr decoder;
};

} // namespace zl::svx
