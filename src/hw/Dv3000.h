#pragma once

#include <QByteArray>
#include <QElapsedTimer>
#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>

class QSerialPort;
class QUdpSocket;
class QTimer;
class QIODevice;

namespace zl::hw {

class Md380Vocoder;

// One AMBE vocoder, whatever carries it: a DV3000 stick on a serial port, a remote
// AMBEserver over UDP (the same AMBE-3000 packets in datagrams), or the MD380 firmware
// run in-process ("sw://md380"). Lives on the pool's worker thread; callers elsewhere
// reach postChannel, postSpeech and setRate by queued invocation.
class Dv3000 : public QObject {
    Q_OBJECT

public:
    explicit Dv3000(QObject* parent = nullptr);
    ~Dv3000() override;

    Q_INVOKABLE bool openPort(const QString& port);
    Q_INVOKABLE bool openUdp(const QString& host, quint16 port);
    Q_INVOKABLE bool openInproc();
    // Sweeps all FTDI ports (vendor 0x0403) until one answers; returns the first port tried.
    QString autoOpen();
    Q_INVOKABLE void close();
    bool isOpen() const;

    // Configures the channel for a rate index (33, 34, 35, 49, 59, 63 on a chip; 33, 34 in-process). Blocking.
    Q_INVOKABLE bool setRate(int rate);
    // Asynchronous decode; the answer comes as pcmFrameReady. bitCount < 1: frame size times 8.
    Q_INVOKABLE void postChannel(const QByteArray& frame, int bitCount);
    // Asynchronous encode of 160 samples; the answer comes as ambeFrameReady.
    void postSpeech(const qint16* pcm);
    Q_INVOKABLE void postSpeech(const QByteArray& pcm);

    // Blocking forms; no part of the program uses them at present.
    QByteArray encodeSpeech(const qint16* pcm);
    QByteArray decodeChannel(const QByteArray& frame, int bitCount);
    QByteArray decodeBatch(const QList<QByteArray>& frames, int bitCount);

    bool isInproc() const { return inproc; }
    bool isUdp() const { return udp && udpMode; }
    QString currentPort() const { return portName; }
    QString targetLocation() const { return target; }
    QString productId() const { return prodId; }
    QString versionText() const { return version; }
    QString errorText() const { return lastError; }
    int rate() const { return currentRate; }
    // Channel frames written to the chip whose speech has not come back yet.
    int framesInFlight() const { return inFlight; }

    // Interval of the product-id retries, 200 ms; tests shorten it.
    void setProbeInterval(int ms) { probeIntervalMs = ms; }
    // An answer later than this, 200 ms, is taken as lost; a healthy chip answers within a
    // few ms. Tests that hold answers back lengthen it.
    void setReplyTimeout(int ms) { replyTimeoutMs = ms; }

signals:
    void detected(const QString& prodId, const QString& version);
    void failed(const QString& reason);
    void pcmFrameReady(const QByteArray& pcm);
    void ambeFrameReady(const QByteArray& ambe);

private slots:
    void onSerialReadyRead();
    void tryNextCandidate();
    void onReplyTimeout();

private:
    struct PendingChannel {
        QByteArray frame;
        int bitCount;
    };

    QIODevice* device() const;
    QByteArray readAvailable();
    bool waitForInput(int ms);
    qint64 writePacket(const QByteArray& packet);
    void requestProductId();
    void onProbeTimeout();
    void parsePacket(const QByteArray& packet);
    void pumpChannels();
    bool loadMd380Firmware();
    QByteArray inprocDecode(const QByteArray& frame);
    QByteArray inprocEncode(const qint16* pcm);
    QByteArray blockingRequest(const QByteArray& packet, quint8 replyType, const char* what);
    // Send times of the requests whose answers are due, oldest first: decodes wait for
    // speech, encodes for a channel frame. An answer takes the oldest of its kind.
    void await(QList<qint64>& queue);
    bool answered(QList<qint64>& queue);
    void forgetAwaited();

    QSerialPort* serial = nullptr;
    QUdpSocket* udp = nullptr;
    bool udpMode = false;
    Md380Vocoder* vocoder = nullptr;
    bool inproc = false;
    QByteArray md380Firmware;
    QByteArray md380Ram;
    QTimer* probeTimer = nullptr;
    QByteArray rxBuffer;
    QString portName;
    QString target;
    QString prodId;
    QString version;
    QString lastError;
    bool probing = false;
    int probeRetries = 0;
    int baudIndex = 0;
    QStringList candidates;
    int currentRate = -1;
    QList<PendingChannel> pendingChannels;
    int inFlight = 0;
    int probeIntervalMs = 200;
    QTimer* replyTimer = nullptr;
    QElapsedTimer replyClock;
    QList<qint64> awaitedPcm;
    QList<qint64> awaitedAmbe;
    int lostInRow = 0;
    int replyTimeoutMs = 200;
    qint64 lastRxMs = 0;
};

} // namespace zl::hw
