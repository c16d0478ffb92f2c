#pragma once

#include "AudioChain.h"
#include "JitterQueue.h"
#include "RxAgc.h"
#include "SinkPort.h"

#include <QByteArray>
#include <QHash>
#include <QObject>
#include <QString>

#include <map>
#include <memory>

class QAudioSource;
class QIODevice;
class QTimer;

namespace zl::audio {

// The one owner of the speaker and the microphone. Every mode hands its received speech to
// pushPcm (8 kHz mono 16-bit); exactly one mode is heard at a time, the first talker, unless
// the mode in front has interrupt priority. Received audio gets volume, boost and optional
// automatic gain, waits in the jitter buffer and is upsampled for the sink. The microphone
// is captured at 8 kHz with its gain and offered to whoever transmits by micPcmReady.
// Main thread only.
class AudioMixer : public QObject {
    Q_OBJECT

public:
    static AudioMixer& instance();

    explicit AudioMixer(QObject* parent = nullptr);
    ~AudioMixer() override;

    void pushPcm(const QString& modeKey, const QByteArray& pcm, const QString& peerKey = {});
    // A short signal of the program's own (8 kHz PCM) for the operator, heard also while
    // transmitting: no talker, no chain, straight to the speaker at its volume.
    void playCue(const QByteArray& pcm);
    bool canPlay(const QString& modeKey) const;

    void setActiveMode(const QString& modeKey);
    void applyChains(const QString& modeKey, const QString& rowKey);
    void setNowPlaying(const QString& modeKey);
    void setPttActive(bool on);
    void setTxHalfDuplex(bool on);
    void setMicMuted(bool on);
    void setSpkMuted(bool on);
    void setSpkVolume(int percent);
    void setSpkBoostDb(int db);
    void setMicGainDb(int db);
    void setRxAgc(bool on);
    void setRxJitterMs(int ms);
    bool isPriority(const QString& modeKey) const;
    void setPriority(const QString& modeKey, bool on);
    void setSpkDevice(const QString& description);
    void setMicDevice(const QString& description);
    void reloadConfig();
    void shutdown();

    QString nowPlayingMode() const { return nowPlaying; }
    QString activeModeKey() const { return activeMode; }
    int rxJitterDepthMs() const { return rxJitterMs; }
    int spkBoostDecibels() const { return spkBoostDb; }
    int micGainDecibels() const { return micGainDb; }
    int spkVolumePercent() const { return spkVolumePct; }
    bool rxAgcEnabled() const { return rxAgcOn; }
    bool hasSink() const { return sink != nullptr; }
    bool hasSource() const { return source != nullptr; }
    // The receive chain in use for this peer of this mode, null before its first frame.
    const AudioChain* rxChainFor(const QString& modeKey, const QString& peerKey) const;
    const AudioChain& transmitChain() const { return txChain; }
    // Why the microphone could not be opened; empty while it works.
    QString micUnavailableReason() const { return micProblem; }

signals:
    void nowPlayingChanged(QString modeKey);
    void micLevelChanged(int peakPct);
    void spkLevelChanged(int peakPct);
    void micPcmReady(QByteArray pcm);
    // The microphone could not be opened (reason), or works again (empty).
    void micAvailabilityChanged(QString reason);

protected:
    // Seams for tests: the clock, the output stream, and the two timers, which a test may
    // drive itself on a simulated clock instead of waiting for real time.
    virtual qint64 nowMs() const;
    // A sink on the device with this description (the default device if none matches), or
    // null when there is no output device at all.
    virtual std::unique_ptr<SinkPort> openSink(const QString& description);
    virtual void startJitterTimer();
    virtual void restartLevelTimer();
    void onJitterTimer();
    void onLevelTimer();
    // One block as read from the microphone.
    void onMicBlock(QByteArray block);

private:
    void ensureSink();
    void openSinkFor(const QString& description);
    void dropSink();
    void dropSource();
    void clearNowPlaying();
    QString configuredSpkDevice() const;
    void onSourceReadyRead();
    void setMicProblem(const QString& reason);
    void reloadTxChain();
    AudioChain& rxChain(const QString& modeKey, const QString& peerKey);

    QString activeMode;
    bool txActive = false;
    QHash<QString, bool> prio;
    QString nowPlaying;
    int spkBoostDb = 0;
    float spkBoost = 1.0f;
    int spkVolumePct = 100;
    float spkVolume = 1.0f;
    int micGainDb = 0;
    float micGain = 1.0f;
    bool rxAgcOn = false;
    RxAgc rxAgc;
    bool micMuted = false;
    bool spkMuted = false;
    bool shuttingDown = false;
    QString micProblem;
    bool txHalfDuplex = false;
    std::unique_ptr<SinkPort> sink;
    QAudioSource* source = nullptr;
    QIODevice* sourceDevice = nullptr;
    QString micDeviceName;
    QString spkDeviceName;
    QTimer* levelTimer = nullptr;
    int spkPeakPct = 0;
    int micPeakPct = 0;
    QTimer* jitterTimer = nullptr;
    int rxJitterMs = 200;
    JitterQueue jitter;
    AudioChain txChain;
    QString txChainPeer;
    // Key: mode, the unit separator 0x1F, peer key. Made at a peer's first frame, dropped at
    // each configuration reload.
    std::map<QString, std::unique_ptr<AudioChain>> rxChains;
    // Per-frame work space, kept to avoid an allocation per frame.
    QByteArray frameWork;
    QByteArray converted;
};

} // namespace zl::audio
