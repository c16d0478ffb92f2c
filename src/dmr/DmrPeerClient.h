#pragma once

#include "dmr/DataCallAssembler.h"
#include "dmr/DmrVoiceLink.h"
#include "dmr/JitterBuffer.h"

#include <netinet/in.h>

#include <QByteArray>
#include <QHostAddress>
#include <QObject>
#include <QQueue>

#include "app/ReconnectBackoff.h"
#include <QString>
#include <QTimer>
#include <QUdpSocket>

#include <functional>
#include <memory>

namespace zl::dmr {

class DmrVoiceDecoder;
struct DmrdHeader;

// One connection to one DMR master over the Homebrew (MMDVM) UDP protocol: login, keep-alive,
// re-login on silence, retry after rejection, and received voice through a jitter buffer.
class DmrPeerClient : public QObject {
    Q_OBJECT

public:
    enum State {
        Idle = 0,
        Resolving = 1,
        WaitingLogin = 2,
        WaitingAuth = 3,
        WaitingConfig = 4,
        Running = 5,
        Closing = 6,
        Failed = 7,
    };
    Q_ENUM(State)

    // The settings a client runs with, filled from a stored peer by profileFor().
    struct Profile {
        QString label;
        QString networkName;
        QString host;
        quint16 port = 62031;
        quint32 peerId = 0;
        QString callsign;
        QString password;
        QString options;
        quint32 rxFreq = 433000000;
        quint32 txFreq = 433000000;
        quint8 power = 1;
        quint8 colorCode = 1;
        int rxJitterMs = 120;
        bool duplex = false;
        quint32 ts1Tg = 0;
        quint32 ts2Tg = 0;
        float latitude = 0.0f;
        float longitude = 0.0f;
        quint16 height = 0;
        QString locationName;
        QString description;
        QString url;
        QString versionString;
        QString softwareName;
    };

    explicit DmrPeerClient(QObject* parent = nullptr);
    ~DmrPeerClient() override;

    // Takes effect at the next start().
    void setProfile(const Profile& profile) { pendingProfile = profile; }
    State state() const { return currentState; }
    QString stateText() const;
    QString lastError() const { return error; }

    // Where a transmission's frames go: open while Running, closed otherwise.
    std::shared_ptr<DmrVoiceLink> voiceLink() const { return voice; }

    // Queues a text message as a data call ("etsi", "anytone" or "short_data", see SmsEncoder.h),
    // sent one burst per 60 ms; false unless Running or with nothing to send. smsSent follows once
    // the last burst has left.
    bool sendSms(quint32 srcId, quint32 dstId, quint8 slot, bool privateCall, const QString& text,
                 const QString& format);

    // One received datagram, as the socket delivers it.
    void handleDatagram(const QByteArray& datagram);

    // Test seam: a replacement clock and a factor by which all timer intervals shrink, so that
    // the 4 s, 5 s and 30 s rules can be exercised in a fraction of the time.
    void setClockForTests(std::function<qint64()> now, int speedup);
    // Test seam: where decoded speech goes instead of AudioMixer::pushPcm (same arguments).
    using PcmSink = std::function<void(const QString& modeKey, const QByteArray& pcm, const QString& peerKey)>;
    void setPcmSinkForTests(PcmSink sink) { pcmSink = std::move(sink); }

public slots:
    void start();
    void stop();

signals:
    void stateChanged(zl::dmr::DmrPeerClient::State s);
    void errorReported(const QString& reason);
    // The status text changed without a change of state: the reconnect countdown.
    void statusTextChanged();
    void dmrFrameReceived(const QByteArray& dmrd);
    void rxStreamHeard(uint srcId, uint dstId, uchar slot, uint streamId, bool privateCall);
    void rxStreamEnded(uint streamId, qlonglong durationMs);
    // The same frames as dmrFrameReceived, always emitted just before it.
    void voiceFrameForDecode(const QByteArray& dmrd);
    // A completed data call that decoded to text; format names how it was read (SmsText.h).
    void smsReceived(uint srcId, uint dstId, bool privateCall, const QString& text, const QString& format);
    void smsSent(uint dstId, const QString& text);

private slots:
    void onLookupResolved();
    void onReadyRead();
    void onClock();
    void onJitterTick();
    void onRetryTimer();
    void onSmsTick();

private:
    qint64 now() const;
    // "label (network)" for log lines, so that two peers on one network can be told apart.
    QString logName() const;
    int scaled(int intervalMs) const;
    void setState(State s);
    void fail(const QString& reason);
    void giveUp(const QString& reason);
    bool sendControl(const QByteArray& datagram);
    QByteArray withPeerId(const char* tag) const;
    void sendLogin();
    void sendAuth();
    void sendConfig();
    void sendOptions();
    void onAck(const QByteArray& datagram);
    void onNak();
    void onVoiceFrame(const QByteArray& dmrd);
    void deliver(const QByteArray& dmrd);
    void onDataBurst(const DmrdHeader& header, const QByteArray& dmrd);
    void updateJitterTimer();

    Profile pendingProfile;
    Profile profile;
    State currentState = Idle;
    QString error;

    QUdpSocket* socket;
    QHostAddress masterAddress;
    sockaddr_in masterSockAddr{};
    QTimer* clockTimer;
    QTimer* jitterTimer;
    QTimer* retryTimer;
    QTimer* countdownTimer;
    QTimer* smsTimer;

    QByteArray salt;
    qint64 lastRxMs = 0;
    qint64 lastPingMs = 0;
    int retryDelayMs = 1000;
    // Set while a master that stopped answering is being tried again; a refusal clears it.
    bool reconnecting = false;
    ReconnectBackoff backoff;
    int attempts = 0;

    quint32 rxStreamId = 0;
    qint64 rxStartMs = 0;
    qint64 rxLastFrameMs = 0;
    JitterBuffer jitter;
    DataCallAssembler dataCalls;

    // Frames of short messages waiting for their 60 ms tick, and what smsSent reports.
    QQueue<QByteArray> smsQueue;
    quint32 smsDstId = 0;
    QString smsText;

    std::function<qint64()> clock;
    int speedup = 1;

    // Lives on the vocoder pool's worker thread, reached by queued signals only.
    DmrVoiceDecoder* decoder;
    PcmSink pcmSink;
    std::shared_ptr<DmrVoiceLink> voice = std::make_shared<DmrVoiceLink>();
};

} // namespace zl::dmr
