#include "AudioMixer.h"

#include "PcmDsp.h"
#include "QtSinkPort.h"
#include "app/Config.h"

#include <QAudioDevice>
#include <QAudioSource>
#include <QCoreApplication>
#include <QDateTime>
#include <QDebug>
#include <QJsonObject>
#include <QMediaDevices>
#include <QTimer>

#include <cmath>
#include <cstring>

namespace zl::audio {

namespace {

const QString kAudio = QStringLiteral("audio");
const QString kModeState = QStringLiteral("mode_state");
const QString kPrio = QStringLiteral("prio");

constexpr int kLevelHoldMs = 250;
constexpr int kJitterBeatMs = 5;
constexpr int kSinkBufferMs = 200;
constexpr int kSourceBufferMs = 30;
constexpr int kMaxJitterMs = 1000;

float dbToFactor(int db)
{
    return float(std::pow(10.0, db / 20.0));
}

const char* onOff(bool on)
{
    return on ? "ON" : "OFF";
}

// The device with this description, else the default one (null when there is none).
QAudioDevice findDevice(const QList<QAudioDevice>& devices, QAudioDevice fallback, const QString& description)
{
    if (description.isEmpty())
        return fallback;
    for (const QAudioDevice& device : devices) {
        if (device.description() == description)
            return device;
    }
    return fallback;
}

qsizetype bytesForMs(const QAudioFormat& format, int ms)
{
    return qsizetype(format.sampleRate()) * ms / 1000 * format.bytesPerFrame();
}

} // namespace

AudioMixer& AudioMixer::instance()
{
    static AudioMixer mixer;
    return mixer;
}

AudioMixer::AudioMixer(QObject* parent) : QObject(parent), levelTimer(new QTimer(this)), jitterTimer(new QTimer(this))
{
    levelTimer->setSingleShot(true);
    levelTimer->setInterval(kLevelHoldMs);
    connect(levelTimer, &QTimer::timeout, this, &AudioMixer::onLevelTimer);
    jitterTimer->setInterval(kJitterBeatMs);
    jitterTimer->setTimerType(Qt::PreciseTimer);
    connect(jitterTimer, &QTimer::timeout, this, &AudioMixer::onJitterTimer);
    reloadConfig();
    connect(&Config::instance(), &Config::configChanged, this, &AudioMixer::reloadConfig);
}

AudioMixer::~AudioMixer()
{
    // After the application object is gone, Qt Multimedia is too: what shutdown() did not
    // release is left to the end of the process.
    if (QCoreApplication::instance()) {
        dropSource();
        return;
    }
    (void)sink.release();
    const QObjectList owned = children();
    for (QObject* child : owned)
        child->setParent(nullptr);
}

qint64 AudioMixer::nowMs() const
{
    return QDateTime::currentMSecsSinceEpoch();
}

void AudioMixer::startJitterTimer()
{
    if (!jitterTimer->isActive())
        jitterTimer->start();
}

void AudioMixer::restartLevelTimer()
{
    levelTimer->start();
}

bool AudioMixer::canPlay(const QString& modeKey) const
{
    if (txActive)
        return false;
    if (nowPlaying.isEmpty() || modeKey == nowPlaying)
        return true;
    if (modeKey != activeMode)
        return false;
    return prio.value(modeKey, false);
}

void AudioMixer::pushPcm(const QString& modeKey, const QByteArray& pcm, const QString& peerKey)
{
    if (shuttingDown || !canPlay(modeKey))
        return;
    const bool streamStart = modeKey != nowPlaying;
    if (streamStart) {
        nowPlaying = modeKey;
        emit nowPlayingChanged(modeKey);
    }
    ensureSink();
    if (!sink)
        return;
    if (pcm.isEmpty() || spkMuted || txHalfDuplex)
        return;
    if (pcm.size() % 2)
        qWarning() << "AudioMixer: odd PCM block of" << pcm.size() << "bytes from" << modeKey << "— last byte dropped";
    const qsizetype count = pcm.size() / 2;
    if (count == 0)
        return;
    if (streamStart)
        qInfo() << "AudioMixer: stream START on" << modeKey << "— buf-size=" << sink->bufferSize()
                << "bytesFree=" << sink->bytesFree();

    frameWork.resize(count * 2);
    std::memcpy(frameWork.data(), pcm.constData(), size_t(count * 2));
    auto* samples = reinterpret_cast<qint16*>(frameWork.data());
    AudioChain& chain = rxChain(modeKey, peerKey);
    if (chain.isEnabled()) {
        if (streamStart)
            chain.reset();
        chain.process(samples, int(qMin<qsizetype>(count, INT_MAX)));
    }
    float gain = spkVolume * spkBoost;
    if (rxAgcOn) {
        if (streamStart)
            rxAgc.gain = 1.0;
        applyGain(samples, count, gain);
        rxAgc.process(samples, count);
        gain = 1.0f;
    }
    convertToSink(samples, count, gain, sink->format(), converted);

    if (rxJitterMs > 0) {
        if (streamStart)
            jitter.startStream();
        if (jitter.push(converted, nowMs(), rxJitterMs))
            qInfo() << "AudioMixer: jitter buffer preroll done," << jitter.durationMs(jitter.data().size())
                    << "ms — playing";
        startJitterTimer();
    } else {
        const qint64 taken = sink->write(converted.constData(), converted.size());
        if (taken < converted.size())
            qWarning() << "AudioMixer: sink-write partial" << taken << "/" << converted.size() << "B — Qt buffer full?";
    }

    spkPeakPct = meterPercent(peakOf(samples, count), spkPeakPct);
    emit spkLevelChanged(spkPeakPct);
    restartLevelTimer();
}

void AudioMixer::playCue(const QByteArray& pcm)
{
    if (shuttingDown || spkMuted || pcm.size() < 2)
        return;
    ensureSink();
    if (!sink)
        return;
    const qsizetype count = pcm.size() / 2;
    frameWork = pcm.left(count * 2);
    convertToSink(reinterpret_cast<qint16*>(frameWork.data()), count, spkVolume, sink->format(), converted);
    sink->write(converted.constData(), converted.size());
}

void AudioMixer::onJitterTimer()
{
    if (!sink)
        return;
    sink->resumeIfSuspended();
    if (rxJitterMs < 1)
        return;
    const JitterQueue::Step step = jitter.step(nowMs(), rxJitterMs, sink->bufferSize(), sink->bytesFree());
    switch (step.kind) {
    case JitterQueue::Step::Wait:
        break;
    case JitterQueue::Step::Write:
        jitter.consume(sink->write(jitter.data().constData(), step.bytes));
        break;
    case JitterQueue::Step::Silence: {
        const QByteArray silence(step.bytes, '\0');
        sink->write(silence.constData(), silence.size());
        jitter.countGap();
        break;
    }
    case JitterQueue::Step::Ended:
        if (step.gapFrames != 0)
            qInfo() << "AudioMixer: jitter buffer — gaps concealed with silence:" << step.gapFrames << "x 20 ms";
        clearNowPlaying();
        break;
    }
}

void AudioMixer::onLevelTimer()
{
    spkPeakPct = 0;
    emit spkLevelChanged(0);
    if (rxJitterMs <= 0 || !jitter.isPlaying())
        clearNowPlaying();
}

void AudioMixer::clearNowPlaying()
{
    if (nowPlaying.isEmpty())
        return;
    nowPlaying.clear();
    emit nowPlayingChanged(QString());
}

QString AudioMixer::configuredSpkDevice() const
{
    const QString own =
        Config::instance().section(activeMode).value(kAudio).toObject().value(QStringLiteral("spk_device")).toString();
    if (!own.isEmpty())
        return own;
    return Config::instance().section(kAudio).value(QStringLiteral("default_spk_device")).toString();
}

void AudioMixer::ensureSink()
{
    if (shuttingDown || sink)
        return;
    openSinkFor(configuredSpkDevice());
}

void AudioMixer::openSinkFor(const QString& description)
{
    spkDeviceName = description;
    sink = openSink(description);
    if (!sink)
        return;
    const QAudioFormat format = sink->format();
    jitter.setFormat(format.sampleRate(), qMax(1, format.bytesPerFrame()));
    qInfo() << "AudioMixer::ensureSink: buf-size=" << sink->bufferSize() << "B ("
            << jitter.durationMs(sink->bufferSize()) << "ms)";
    startJitterTimer();
}

std::unique_ptr<SinkPort> AudioMixer::openSink(const QString& description)
{
    const QAudioDevice device =
        findDevice(QMediaDevices::audioOutputs(), QMediaDevices::defaultAudioOutput(), description);
    if (device.isNull())
        return nullptr;
    QAudioFormat format;
    format.setSampleRate(48000);
    format.setChannelCount(2);
    format.setSampleFormat(QAudioFormat::Int16);
    if (!device.isFormatSupported(format)) {
        format = device.preferredFormat();
        qInfo() << "AudioMixer: 48 kHz stereo Int16 not supported —"
                << "falling back to preferred" << format.sampleRate() << "Hz x" << format.channelCount() << "ch";
    }
    qInfo() << "AudioMixer::ensureSink → device=" << device.description() << "format=" << format.sampleRate() << "Hz x"
            << format.channelCount() << "ch"
            << "(wanted=" << description << ", activeMode=" << activeMode << ")";
    return std::make_unique<QtSinkPort>(device, format, bytesForMs(format, kSinkBufferMs));
}

void AudioMixer::dropSink()
{
    sink.reset();
    jitter.clear();
}

void AudioMixer::setSpkDevice(const QString& description)
{
    if (description == spkDeviceName && sink)
        return;
    dropSink();
    if (!shuttingDown)
        openSinkFor(description);
}

void AudioMixer::dropSource()
{
    if (!source)
        return;
    source->stop();
    delete source;
    source = nullptr;
    sourceDevice = nullptr;
}

void AudioMixer::setMicDevice(const QString& description)
{
    if (description == micDeviceName && source && source->state() != QAudio::StoppedState)
        return;
    dropSource();
    micDeviceName = description;
    if (shuttingDown)
        return;
    const QAudioDevice device =
        findDevice(QMediaDevices::audioInputs(), QMediaDevices::defaultAudioInput(), description);
    if (device.isNull())
        return setMicProblem(QStringLiteral("no microphone found"));
    QAudioFormat format;
    format.setSampleRate(8000);
    format.setChannelCount(1);
    format.setSampleFormat(QAudioFormat::Int16);
    // Another rate is taken as it comes; only the sample type must be ours.
    if (!device.isFormatSupported(format)) {
        format = device.preferredFormat();
        if (format.sampleFormat() != QAudioFormat::Int16)
            return setMicProblem(QStringLiteral("%1 offers no 16-bit samples").arg(device.description()));
    }
    source = new QAudioSource(device, format, this);
    source->setBufferSize(bytesForMs(format, kSourceBufferMs));
    sourceDevice = source->start();
    if (!sourceDevice || source->error() != QAudio::NoError) {
        dropSource();
        return setMicProblem(QStringLiteral("%1 could not be opened").arg(device.description()));
    }
    connect(sourceDevice, &QIODevice::readyRead, this, &AudioMixer::onSourceReadyRead);
    // A microphone unplugged or taken away by the sound server stops with an error.
    connect(source, &QAudioSource::stateChanged, this, [this, name = device.description()](QAudio::State state) {
        if (state == QAudio::StoppedState && source && source->error() != QAudio::NoError)
            setMicProblem(QStringLiteral("%1 stopped").arg(name));
    });
    setMicProblem({});
}

void AudioMixer::setMicProblem(const QString& reason)
{
    if (!reason.isEmpty()) {
        emit micLevelChanged(0);
        qWarning().noquote() << "AudioMixer: microphone unavailable:" << reason;
    }
    if (reason == micProblem && reason.isEmpty())
        return;
    micProblem = reason;
    emit micAvailabilityChanged(reason);
}

void AudioMixer::onSourceReadyRead()
{
    onMicBlock(sourceDevice->readAll());
}

void AudioMixer::onMicBlock(QByteArray block)
{
    if (block.isEmpty())
        return;
    if (micMuted) {
        emit micLevelChanged(0);
        emit micPcmReady(comfortNoise(block.size()));
        return;
    }
    const qsizetype count = block.size() / 2;
    auto* samples = reinterpret_cast<qint16*>(block.data());
    if (micGain != 1.0f)
        applyGain(samples, count, micGain);
    micPeakPct = meterPercent(peakOf(samples, count), micPeakPct);
    emit micLevelChanged(micPeakPct);
    txChain.process(samples, int(qMin<qsizetype>(count, INT_MAX)));
    emit micPcmReady(block);
}

void AudioMixer::setActiveMode(const QString& modeKey)
{
    if (modeKey == activeMode)
        return;
    activeMode = modeKey;
    // The mode in front may have a speaker of its own.
    if (sink) {
        dropSink();
        ensureSink();
    }
    reloadConfig();
}

void AudioMixer::applyChains(const QString& modeKey, const QString& rowKey)
{
    if (modeKey == activeMode && rowKey == txChainPeer)
        return;
    activeMode = modeKey;
    txChainPeer = rowKey;
    reloadTxChain();
}

void AudioMixer::reloadTxChain()
{
    txChain.configure(loadChainConfig(activeMode, txChainPeer, QStringLiteral("chain_tx")));
    qInfo() << "AudioMixer: audio chain for" << (activeMode.isEmpty() ? QStringLiteral("default") : activeMode)
            << "tx=" << txChain.isEnabled() << "(ladspa" << txChain.pluginCount()
            << ") rx=" << loadChainConfig(activeMode, txChainPeer, QStringLiteral("chain_rx")).enabled;
}

AudioChain& AudioMixer::rxChain(const QString& modeKey, const QString& peerKey)
{
    std::unique_ptr<AudioChain>& chain = rxChains[modeKey + QChar(0x1F) + peerKey];
    if (!chain) {
        chain = std::make_unique<AudioChain>();
        chain->configure(loadChainConfig(modeKey, peerKey, QStringLiteral("chain_rx")));
    }
    return *chain;
}

const AudioChain* AudioMixer::rxChainFor(const QString& modeKey, const QString& peerKey) const
{
    const auto it = rxChains.find(modeKey + QChar(0x1F) + peerKey);
    return it == rxChains.end() ? nullptr : it->second.get();
}

void AudioMixer::setNowPlaying(const QString& modeKey)
{
    if (modeKey == nowPlaying)
        return;
    nowPlaying = modeKey;
    emit nowPlayingChanged(modeKey);
}

void AudioMixer::setPttActive(bool on)
{
    if (on == txActive)
        return;
    txActive = on;
    if (!on)
        return;
    jitter.clear();
    clearNowPlaying();
}

void AudioMixer::setTxHalfDuplex(bool on)
{
    if (on == txHalfDuplex)
        return;
    txHalfDuplex = on;
    qInfo() << "AudioMixer: TX half-duplex" << (on ? "ON (RX silent)" : "OFF");
    if (!on)
        return;
    jitter.clear();
    emit spkLevelChanged(0);
}

void AudioMixer::setMicMuted(bool on)
{
    if (on == micMuted)
        return;
    micMuted = on;
    qInfo() << "AudioMixer: mic-mute" << onOff(on);
    if (on)
        emit micLevelChanged(0);
}

void AudioMixer::setSpkMuted(bool on)
{
    if (on == spkMuted)
        return;
    spkMuted = on;
    qInfo() << "AudioMixer: spk-mute" << onOff(on);
    if (on)
        emit spkLevelChanged(0);
}

void AudioMixer::setSpkVolume(int percent)
{
    percent = qBound(0, percent, 100);
    if (percent == spkVolumePct)
        return;
    spkVolumePct = percent;
    spkVolume = float(percent) / 100.0f;
    qInfo() << "AudioMixer: spk-volume set to" << percent << "% (" << spkVolume << "x linear)";
}

void AudioMixer::setSpkBoostDb(int db)
{
    db = qBound(0, db, 12);
    if (db == spkBoostDb)
        return;
    spkBoostDb = db;
    spkBoost = dbToFactor(db);
    qInfo() << "AudioMixer: spk-boost set to" << db << "dB (" << spkBoost << "x linear)";
}

void AudioMixer::setMicGainDb(int db)
{
    db = qBound(-30, db, 30);
    if (db == micGainDb)
        return;
    micGainDb = db;
    micGain = dbToFactor(db);
    qInfo() << "AudioMixer: mic-gain set to" << db << "dB (" << micGain << "x linear)";
}

void AudioMixer::setRxAgc(bool on)
{
    if (on == rxAgcOn)
        return;
    rxAgcOn = on;
    rxAgc.gain = 1.0;
    qInfo() << "AudioMixer: RX-AGC" << onOff(on);
}

void AudioMixer::setRxJitterMs(int ms)
{
    ms = qBound(0, ms, kMaxJitterMs);
    if (ms == rxJitterMs)
        return;
    rxJitterMs = ms;
    if (ms > 0)
        qInfo() << "AudioMixer: RX jitter buffer" << ms << "ms";
    else
        qInfo() << "AudioMixer: RX jitter buffer OFF";
}

bool AudioMixer::isPriority(const QString& modeKey) const
{
    return prio.value(modeKey, false);
}

void AudioMixer::setPriority(const QString& modeKey, bool on)
{
    if (isPriority(modeKey) == on)
        return;
    prio.insert(modeKey, on);
    Config& config = Config::instance();
    QJsonObject state = config.section(kModeState);
    QJsonObject mode = state.value(modeKey).toObject();
    mode.insert(kPrio, on);
    state.insert(modeKey, mode);
    config.setSection(kModeState, state);
    config.save();
}

void AudioMixer::reloadConfig()
{
    const Config& config = Config::instance();
    const QJsonObject audio = config.section(kAudio);
    setSpkBoostDb(audio.value(QStringLiteral("default_spk_boost_db")).toInt(0));
    setMicGainDb(audio.value(QStringLiteral("default_mic_gain_db")).toInt(0));
    setRxAgc(audio.value(QStringLiteral("rx_agc")).toBool(false));
    setRxJitterMs(audio.value(QStringLiteral("rx_jitter_ms")).toInt(200));
    const QJsonObject state = config.section(kModeState);
    prio.clear();
    for (auto it = state.begin(); it != state.end(); ++it)
        prio.insert(it.key(), it.value().toObject().value(kPrio).toBool(false));
    rxChains.clear();
    reloadTxChain();
}

void AudioMixer::shutdown()
{
    qInfo() << "[shutdown] AudioMixer::shutdown — releasing sink/source before QPA dies";
    shuttingDown = true;
    jitterTimer->stop();
    levelTimer->stop();
    dropSink();
    dropSource();
    frameWork.clear();
    converted.clear();
}

} // namespace zl::audio
