// The mixer's logic without a sound device: a simulated sink that drains in real-time terms
// of a simulated clock, and the two timers driven by that clock.
#include "LogCapture.h"
#include "TempConfigHome.h"
#include "app/Config.h"
#include "audio/AudioMixer.h"

#include <QFile>
#include <QJsonDocument>
#include <QSignalSpy>
#include <QTest>

#include <algorithm>

using namespace zl::audio;

namespace {

QAudioFormat stereo48k()
{
    QAudioFormat f;
    f.setSampleRate(48000);
    f.setChannelCount(2);
    f.setSampleFormat(QAudioFormat::Int16);
    return f;
}

// A sink whose queue empties at the format's byte rate as the simulated clock moves.
class FakeSink : public SinkPort {
public:
    struct Write {
        qint64 atMs;
        QByteArray bytes;
    };

    FakeSink(const QAudioFormat& f, const qint64& clockMs)
        : fmt(f), clock(clockMs), bytesPerMs(f.sampleRate() * f.bytesPerFrame() / 1000), size(bytesPerMs * 200),
          lastDrain(clockMs)
    {
    }

    QAudioFormat format() const override { return fmt; }
    qsizetype bufferSize() const override { return size; }
    qsizetype bytesFree() const override
    {
        drain();
        return size - queued;
    }
    qint64 write(const char* data, qint64 len) override
    {
        drain();
        const qint64 taken = qMin(len, qint64(size - queued));
        queued += taken;
        maxQueued = qMax(maxQueued, queued);
        if (taken > 0)
            writes.append({clock, QByteArray(data, taken)});
        return taken;
    }
    void resumeIfSuspended() override {}

    bool anyWriteWith(qint16 value) const
    {
        return std::any_of(writes.begin(), writes.end(), [value](const Write& w) {
            const auto* s = reinterpret_cast<const qint16*>(w.bytes.constData());
            return std::find(s, s + w.bytes.size() / 2, value) != s + w.bytes.size() / 2;
        });
    }
    qsizetype silenceBytes() const
    {
        qsizetype n = 0;
        for (const Write& w : writes) {
            if (w.bytes.count('\0') == w.bytes.size())
                n += w.bytes.size();
        }
        return n;
    }

    QList<Write> writes;
    qsizetype maxQueued = 0;

private:
    void drain() const
    {
        queued = qMax(qsizetype(0), queued - qsizetype(clock - lastDrain) * bytesPerMs);
        lastDrain = clock;
    }

    QAudioFormat fmt;
    const qint64& clock;
    qsizetype bytesPerMs;
    qsizetype size;
    mutable qsizetype queued = 0;
    mutable qint64 lastDrain;
};

// The mixer on a simulated clock: advance() moves time in 1 ms steps, beating the jitter
// timer every 5 ms and firing the level timer when its 250 ms have run out.
class SimMixer : public AudioMixer {
public:
    qint64 clock = 1000000;
    bool noDevice = false;
    QStringList opened; // descriptions asked for, in order
    FakeSink* sink = nullptr;

    void advance(int ms)
    {
        for (int i = 0; i < ms; ++i) {
            ++clock;
            if (levelDeadline >= 0 && clock >= levelDeadline) {
                levelDeadline = -1;
                onLevelTimer();
            }
            if (jitterRunning && clock % 5 == 0)
                onJitterTimer();
        }
    }
    // Frames of a constant value, one every 20 ms.
    void talk(const QString& mode, int frames, qint16 value)
    {
        for (int i = 0; i < frames; ++i) {
            pushPcm(mode, frame(value), QStringLiteral("peer"));
            advance(20);
        }
    }
    static QByteArray frame(qint16 value, int samples = 160)
    {
        QByteArray pcm(samples * 2, Qt::Uninitialized);
        auto* s = reinterpret_cast<qint16*>(pcm.data());
        std::fill(s, s + samples, value);
        return pcm;
    }

    using AudioMixer::onMicBlock;

protected:
    qint64 nowMs() const override { return clock; }
    std::unique_ptr<SinkPort> openSink(const QString& description) override
    {
        opened.append(description);
        if (noDevice)
            return nullptr;
        auto port = std::make_unique<FakeSink>(stereo48k(), clock);
        sink = port.get();
        return port;
    }
    void startJitterTimer() override { jitterRunning = true; }
    void restartLevelTimer() override { levelDeadline = clock + 250; }

private:
    bool jitterRunning = false;
    qint64 levelDeadline = -1;
};

const QString kDmr = QStringLiteral("dmr");
const QString kM17 = QStringLiteral("m17");
const QString kYsf = QStringLiteral("ysf");

} // namespace

class TestAudioMixer : public QObject {
    Q_OBJECT

private:
    TempConfigHome home;

    static void writeAudio(const QJsonObject& audio)
    {
        zl::Config::instance().setSection(QStringLiteral("audio"), audio);
    }

private slots:
    void init()
    {
        zl::Config& config = zl::Config::instance();
        config.setSectionSilent(QStringLiteral("audio"), {});
        config.setSectionSilent(QStringLiteral("mode_state"), {});
        config.setSectionSilent(kM17, {});
        config.setSectionSilent(kDmr, {});
    }

    void firstTalkerKeepsTheSpeaker()
    {
        SimMixer mixer;
        mixer.setActiveMode(kM17);
        QSignalSpy talker(&mixer, &AudioMixer::nowPlayingChanged);
        // DMR talks; M17 (in front, no priority) and YSF (behind) talk over it.
        for (int i = 0; i < 20; ++i) {
            mixer.pushPcm(kDmr, SimMixer::frame(1000));
            mixer.pushPcm(kM17, SimMixer::frame(3000));
            mixer.pushPcm(kYsf, SimMixer::frame(5000));
            QVERIFY(!mixer.canPlay(kM17));
            mixer.advance(20);
        }
        QCOMPARE(talker.size(), 1);
        QCOMPARE(talker.first().first().toString(), kDmr);
        QCOMPARE(mixer.nowPlayingMode(), kDmr);
        // Refused frames vanish; nothing is queued for later.
        mixer.advance(400);
        QVERIFY(mixer.sink->anyWriteWith(1000));
        QVERIFY(!mixer.sink->anyWriteWith(3000));
        QVERIFY(!mixer.sink->anyWriteWith(5000));
        // 300 ms after the buffer ran dry the stream has ended: now the next one is heard.
        QCOMPARE(talker.size(), 2);
        QCOMPARE(talker.last().first().toString(), QString());
        mixer.talk(kYsf, 15, 5000);
        QCOMPARE(mixer.nowPlayingMode(), kYsf);
        QCOMPARE(talker.last().first().toString(), kYsf);
        mixer.advance(100);
        QVERIFY(mixer.sink->anyWriteWith(5000));
    }

    void frontModePriority_data()
    {
        QTest::addColumn<bool>("prio");
        QTest::newRow("prio on: takes over at once") << true;
        QTest::newRow("prio off: waits") << false;
    }

    void frontModePriority()
    {
        QFETCH(bool, prio);
        zl::Config::instance().setSectionSilent(
            QStringLiteral("mode_state"),
            QJsonObject{{kM17, QJsonObject{{"prio", prio}}}, {kYsf, QJsonObject{{"prio", true}}}});
        SimMixer mixer;
        QCOMPARE(mixer.isPriority(kM17), prio);
        mixer.setActiveMode(kM17);
        mixer.talk(kDmr, 3, 1000);
        // A mode behind the front page never interrupts, priority or not.
        mixer.pushPcm(kYsf, SimMixer::frame(5000));
        QCOMPARE(mixer.nowPlayingMode(), kDmr);
        QSignalSpy talker(&mixer, &AudioMixer::nowPlayingChanged);
        mixer.pushPcm(kM17, SimMixer::frame(3000));
        QCOMPARE(mixer.nowPlayingMode(), prio ? kM17 : kDmr);
        QCOMPARE(talker.size(), prio ? 1 : 0);
        // Having taken over, the front mode's stream starts afresh and the old talker is refused.
        mixer.pushPcm(kDmr, SimMixer::frame(1000));
        QCOMPARE(mixer.nowPlayingMode(), prio ? kM17 : kDmr);
    }

    void priorityIsStoredOnlyWhenItChanges()
    {
        SimMixer mixer;
        QSignalSpy changed(&zl::Config::instance(), &zl::Config::configChanged);
        mixer.setPriority(kDmr, false);
        QCOMPARE(changed.size(), 0);
        mixer.setPriority(kDmr, true);
        QCOMPARE(changed.size(), 1);
        QVERIFY(mixer.isPriority(kDmr));
        QFile file(home.configFile());
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QJsonObject saved = QJsonDocument::fromJson(file.readAll()).object();
        QCOMPARE(saved.value("mode_state").toObject().value(kDmr).toObject().value("prio").toBool(), true);
        mixer.setPriority(kDmr, true);
        QCOMPARE(changed.size(), 1);
    }

    void pttRefusesAllReceiveAudio()
    {
        SimMixer mixer;
        mixer.talk(kDmr, 12, 1000);
        QSignalSpy talker(&mixer, &AudioMixer::nowPlayingChanged);
        mixer.setPttActive(true);
        QCOMPARE(talker.size(), 1);
        QCOMPARE(talker.first().first().toString(), QString());
        const qsizetype writes = mixer.sink->writes.size();
        mixer.talk(kDmr, 10, 1000);
        mixer.talk(kM17, 10, 3000);
        QCOMPARE(mixer.nowPlayingMode(), QString());
        QCOMPARE(talker.size(), 1);
        QVERIFY(!mixer.canPlay(kDmr));
        // The buffer was dropped: nothing more reaches the sink.
        QCOMPARE(mixer.sink->writes.size(), writes);
        mixer.setPttActive(false);
        mixer.talk(kM17, 1, 3000);
        QCOMPARE(mixer.nowPlayingMode(), kM17);
    }

    void silencedSpeakerStillReportsTheTalker_data()
    {
        QTest::addColumn<bool>("halfDuplex");
        QTest::newRow("speaker muted") << false;
        QTest::newRow("TX half-duplex") << true;
    }

    void silencedSpeakerStillReportsTheTalker()
    {
        QFETCH(bool, halfDuplex);
        SimMixer mixer;
        QSignalSpy level(&mixer, &AudioMixer::spkLevelChanged);
        if (halfDuplex)
            mixer.setTxHalfDuplex(true);
        else
            mixer.setSpkMuted(true);
        QCOMPARE(level.size(), 1);
        QCOMPARE(level.first().first().toInt(), 0);
        QSignalSpy talker(&mixer, &AudioMixer::nowPlayingChanged);
        mixer.talk(kDmr, 10, 1000);
        QCOMPARE(talker.size(), 1);
        QCOMPARE(talker.first().first().toString(), kDmr);
        mixer.advance(300);
        QVERIFY(!mixer.sink->anyWriteWith(1000));
        QCOMPARE(level.size(), 1);
    }

    void jitterDepthIsClamped_data()
    {
        QTest::addColumn<int>("configured");
        QTest::addColumn<int>("taken");
        QTest::addColumn<QString>("line");
        QTest::newRow("5000") << 5000 << 1000 << "AudioMixer: RX jitter buffer 1000 ms";
        QTest::newRow("-1") << -1 << 0 << "AudioMixer: RX jitter buffer OFF";
        QTest::newRow("350") << 350 << 350 << "AudioMixer: RX jitter buffer 350 ms";
    }

    void jitterDepthIsClamped()
    {
        QFETCH(int, configured);
        QFETCH(int, taken);
        QFETCH(QString, line);
        SimMixer mixer;
        QCOMPARE(mixer.rxJitterDepthMs(), 200);
        LogCapture log;
        writeAudio({{"rx_jitter_ms", configured}});
        QCOMPARE(mixer.rxJitterDepthMs(), taken);
        QCOMPARE(log.linesStartingWith("AudioMixer: RX jitter buffer"), QStringList{line});
        // Reloading the same value changes and logs nothing.
        mixer.reloadConfig();
        mixer.setRxJitterMs(configured);
        QCOMPARE(log.linesStartingWith("AudioMixer: RX jitter buffer").size(), 1);
    }

    // The jitter queue's rules are tst_pcmdsp's; here the mixer drives it on its beat.
    void steadyStreamPrerollsAndQueuesAtMost100ms()
    {
        SimMixer mixer;
        const qint64 start = mixer.clock;
        QSignalSpy talker(&mixer, &AudioMixer::nowPlayingChanged);
        mixer.talk(kDmr, 9, 1000);
        QVERIFY(mixer.sink->writes.isEmpty());
        mixer.talk(kDmr, 41, 1000); // 50 frames, one second
        // Playback began with the first beat after the tenth frame came in, 180 ms after the first.
        const qint64 began = mixer.sink->writes.first().atMs - start;
        QVERIFY2(began >= 180 && began <= 185, qPrintable(QString::number(began)));
        QVERIFY(mixer.sink->maxQueued <= 100 * 192);
        QCOMPARE(mixer.sink->silenceBytes(), 0);
        mixer.advance(200);
        QCOMPARE(mixer.nowPlayingMode(), kDmr); // the buffer still plays out
        mixer.advance(400);
        QCOMPARE(talker.size(), 2);
        QCOMPARE(mixer.nowPlayingMode(), QString());
    }

    void unbufferedPlaysAtOnceAndLevelTimerEndsTheTalker()
    {
        SimMixer mixer;
        writeAudio({{"rx_jitter_ms", 0}});
        QSignalSpy level(&mixer, &AudioMixer::spkLevelChanged);
        const qint64 start = mixer.clock;
        mixer.talk(kDmr, 2, 16384);
        QCOMPARE(mixer.sink->writes.first().atMs, start);
        QCOMPARE(level.first().first().toInt(), 50);
        mixer.advance(229); // 249 ms after the last frame
        QCOMPARE(mixer.nowPlayingMode(), kDmr);
        QSignalSpy talker(&mixer, &AudioMixer::nowPlayingChanged);
        mixer.advance(1);
        QCOMPARE(level.last().first().toInt(), 0);
        QCOMPARE(talker.size(), 1);
        QCOMPARE(mixer.nowPlayingMode(), QString());

        // Ten frames fill the 200 ms queue at once; the eleventh is lost with a warning.
        LogCapture log;
        for (int i = 0; i < 11; ++i)
            mixer.pushPcm(kDmr, SimMixer::frame(7));
        QCOMPARE(log.linesStartingWith("AudioMixer: sink-write partial"),
                 QStringList{"AudioMixer: sink-write partial 0 / 3840 B — Qt buffer full?"});
    }

    void gainsReachTheSinkAndTheMeter()
    {
        SimMixer mixer;
        writeAudio({{"rx_jitter_ms", 0}, {"default_spk_boost_db", 6}});
        mixer.setSpkVolume(50);
        QSignalSpy level(&mixer, &AudioMixer::spkLevelChanged);
        mixer.pushPcm(kDmr, SimMixer::frame(10000));
        // 10000 * 0.5 * 1.99526 in the sink; the meter shows the frame before volume and boost.
        QCOMPARE(*reinterpret_cast<const qint16*>(mixer.sink->writes.first().bytes.constData()), qint16(9976));
        QCOMPARE(level.last().first().toInt(), 30);
        // With the AGC on, the meter shows what the AGC made of it.
        mixer.advance(300);
        mixer.setRxAgc(true);
        mixer.pushPcm(kM17, SimMixer::frame(10000));
        // gain 1 -> 0.3 / (9976/32768) = 0.985: falls 30 % of the way, 0.9956 * 9976 = 9932.
        QCOMPARE(mixer.sink->writes.last().bytes.size(), 3840);
        const qint16 out = *reinterpret_cast<const qint16*>(mixer.sink->writes.last().bytes.constData());
        QVERIFY2(qAbs(out - 9932) <= 2, qPrintable(QString::number(out)));
        QCOMPARE(level.last().first().toInt(), out * 100 / 32767);
    }

    // Chain settings fall back from the peer to the mode to the default: received audio is
    // shaped per (mode, peer), the microphone by the mode and row in front.
    void chainsFollowModeAndPeer_data()
    {
        QTest::addColumn<QString>("mode");
        QTest::addColumn<QString>("peer");
        QTest::addColumn<int>("heard"); // 1000 after the receive chain
        QTest::addColumn<int>("sent");  // 1000 after the transmit chain
        QTest::newRow("peer's own") << kDmr << "bm2621" << 1995 << 501;
        QTest::newRow("peer without, mode's own") << kDmr << "tgif" << 251 << 3981;
        QTest::newRow("peer not asking for its own") << kDmr << "plain" << 251 << 3981;
        QTest::newRow("mode without, default") << kM17 << "M17-XOR A" << 501 << 3981;
    }

    void chainsFollowModeAndPeer()
    {
        QFETCH(QString, mode);
        QFETCH(QString, peer);
        const auto chain = [](double db) { return QJsonObject{{"enabled", true}, {"gain_db", db}}; };
        zl::Config& config = zl::Config::instance();
        config.setSectionSilent(
            kDmr,
            {{"audio", QJsonObject{{"chain_own", true}, {"chain_rx", chain(-12)}}},
             {"peer_audio",
              QJsonObject{{"bm2621", QJsonObject{{"chain_own", true}, {"chain_rx", chain(6)}, {"chain_tx", chain(-6)}}},
                          {"plain", QJsonObject{{"chain_rx", chain(20)}}}}}});
        config.setSectionSilent("audio", {{"rx_jitter_ms", 0}, {"chain_rx", chain(-6)}, {"chain_tx", chain(12)}});
        SimMixer mixer;
        mixer.pushPcm(mode, SimMixer::frame(1000), peer);
        QTEST(int(*reinterpret_cast<const qint16*>(mixer.sink->writes.first().bytes.constData())), "heard");
        QSignalSpy mic(&mixer, &AudioMixer::micPcmReady);
        mixer.applyChains(mode, peer);
        mixer.onMicBlock(SimMixer::frame(1000));
        QTEST(int(*reinterpret_cast<const qint16*>(mic.last().first().toByteArray().constData())), "sent");
    }

    void noOutputDeviceKeepsOnlyTheTalker()
    {
        SimMixer mixer;
        mixer.noDevice = true;
        QSignalSpy level(&mixer, &AudioMixer::spkLevelChanged);
        QSignalSpy talker(&mixer, &AudioMixer::nowPlayingChanged);
        mixer.talk(kDmr, 5, 1000);
        QCOMPARE(talker.size(), 1);
        QCOMPARE(level.size(), 0);
        QVERIFY(!mixer.hasSink());
        QCOMPARE(mixer.opened.size(), 5); // asked again with each frame
    }

    void badInputIsSurvived()
    {
        SimMixer mixer;
        writeAudio({{"rx_jitter_ms", 0}});
        LogCapture log;
        // Empty: the talker registers, nothing is played.
        mixer.pushPcm(kDmr, QByteArray());
        QCOMPARE(mixer.nowPlayingMode(), kDmr);
        QVERIFY(mixer.sink->writes.isEmpty());
        // One byte: no sample at all.
        mixer.pushPcm(kDmr, QByteArray(1, '\x7f'));
        QVERIFY(mixer.sink->writes.isEmpty());
        // Odd length: the last byte is dropped with a warning, 160 samples play.
        QByteArray odd = SimMixer::frame(1234);
        odd.append('\x01');
        mixer.pushPcm(kDmr, odd);
        QCOMPARE(mixer.sink->writes.size(), 1);
        QCOMPARE(mixer.sink->writes.first().bytes.size(), 160 * 6 * 4);
        QCOMPARE(log.linesStartingWith("AudioMixer: odd PCM block"),
                 (QStringList{"AudioMixer: odd PCM block of 1 bytes from \"dmr\" — last byte dropped",
                              "AudioMixer: odd PCM block of 321 bytes from \"dmr\" — last byte dropped"}));
        // Any length: a 7-sample block plays as 42 frames.
        mixer.pushPcm(kDmr, SimMixer::frame(5, 7));
        QCOMPARE(mixer.sink->writes.last().bytes.size(), 7 * 6 * 4);
        // A mode key never seen before is a mode like any other.
        mixer.advance(300);
        mixer.pushPcm(QStringLiteral("no-such-mode\x1f"), SimMixer::frame(99));
        QCOMPARE(mixer.nowPlayingMode(), QStringLiteral("no-such-mode\x1f"));
        QVERIFY(mixer.sink->anyWriteWith(99));
        QVERIFY(!mixer.isPriority(QStringLiteral("no-such-mode\x1f")));
    }

    void speakerDeviceComesFromTheModeInFront()
    {
        zl::Config::instance().setSectionSilent(QStringLiteral("audio"), {{"default_spk_device", "Desk speaker"}});
        zl::Config::instance().setSectionSilent(kM17, {{"audio", QJsonObject{{"spk_device", "Headset"}}}});
        SimMixer mixer;
        mixer.pushPcm(kDmr, SimMixer::frame(1));
        QCOMPARE(mixer.opened, QStringList{"Desk speaker"});
        mixer.setActiveMode(kM17); // reopens with the mode's own device
        QCOMPARE(mixer.opened, (QStringList{"Desk speaker", "Headset"}));
        mixer.setSpkDevice("Headset"); // same device, sink open: nothing
        QCOMPARE(mixer.opened.size(), 2);
        mixer.setSpkDevice("USB"); // another description reopens the sink
        QCOMPARE(mixer.opened.last(), QStringLiteral("USB"));
        QVERIFY(mixer.hasSink());
    }

    void microphoneGainMeterAndMute()
    {
        SimMixer mixer;
        QSignalSpy pcm(&mixer, &AudioMixer::micPcmReady);
        QSignalSpy level(&mixer, &AudioMixer::micLevelChanged);
        // Unity gain: the block passes untouched.
        mixer.onMicBlock(SimMixer::frame(16384, 240));
        QCOMPARE(pcm.last().first().toByteArray(), SimMixer::frame(16384, 240));
        QCOMPARE(level.last().first().toInt(), 50);
        mixer.onMicBlock(QByteArray());
        QCOMPARE(pcm.size(), 1);
        // +6 dB, saturating; the meter shows the level after the gain.
        mixer.setMicGainDb(6);
        mixer.onMicBlock(SimMixer::frame(20000, 80));
        QCOMPARE(pcm.last().first().toByteArray(), SimMixer::frame(32767, 80));
        QCOMPARE(level.last().first().toInt(), 100);
        mixer.onMicBlock(SimMixer::frame(0, 80));
        QCOMPARE(level.last().first().toInt(), 96);
        // Muted: comfort noise of the same size, meter at 0.
        mixer.setMicMuted(true);
        QCOMPARE(level.last().first().toInt(), 0);
        mixer.onMicBlock(SimMixer::frame(20000, 240));
        const QByteArray noise = pcm.last().first().toByteArray();
        QCOMPARE(noise.size(), 480);
        const auto* s = reinterpret_cast<const qint16*>(noise.constData());
        QVERIFY(std::all_of(s, s + 240, [](qint16 v) { return v >= -16 && v <= 16; }));
        QVERIFY(std::any_of(s, s + 240, [](qint16 v) { return v != 0; }));
        QCOMPARE(level.last().first().toInt(), 0);
    }

    void framesAfterShutdownAreIgnored()
    {
        SimMixer mixer;
        mixer.talk(kDmr, 12, 1000);
        QVERIFY(mixer.hasSink());
        mixer.shutdown();
        QVERIFY(!mixer.hasSink());
        const qsizetype opened = mixer.opened.size();
        QSignalSpy talker(&mixer, &AudioMixer::nowPlayingChanged);
        QSignalSpy level(&mixer, &AudioMixer::spkLevelChanged);
        mixer.talk(kM17, 5, 1000);
        mixer.talk(kDmr, 5, 1000);
        mixer.setSpkDevice("Other");
        QCOMPARE(mixer.opened.size(), opened);
        QCOMPARE(talker.size(), 0);
        QCOMPARE(level.size(), 0);
    }
};

QTEST_GUILESS_MAIN(TestAudioMixer)
#include "tst_audiomixer.moc"
