// M17 speech end to end: microphone PCM -> M17Voice -> M17Client -> loopback reflector ->
// M17Client -> M17Voice -> PCM, compared with what libcodec2 itself makes of the frames.
#include "M17Reflector.h"
#include "m17/M17Client.h"
#include "m17/M17StreamFrame.h"
#include "m17/M17Voice.h"

#include <QProcess>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <codec2/codec2.h>

#include <cstdlib>
#include <cstring>

using namespace zl::m17;

namespace {

constexpr qsizetype kFrame20ms = 320;

// libcodec2 draws random phases for unvoiced speech from a process-wide generator, so two
// decoders of the same frames agree only when both start from the same generator state.
// This test replaces the library's generator (it is called through the PLT) with the same
// linear congruential generator that can be reset.
unsigned long g_codec2Seed = 1;

void resetCodec2Random()
{
    g_codec2Seed = 1;
    std::srand(1);
}

// Three seconds of real speech at 8 kHz, 16-bit mono, made with espeak-ng and sox.
QByteArray speech()
{
    QTemporaryDir dir;
    const QString wav = dir.filePath("speech.wav");
    const QString raw = dir.filePath("speech.raw");
    if (QProcess::execute("espeak-ng", {"-w", wav,
                                        "CQ CQ CQ, this is X-ray X-ray zero Alpha Bravo Charlie, "
                                        "testing M17 voice, over."}) != 0 ||
        QProcess::execute("sox", {wav, "-r", "8000", "-c", "1", "-b", "16", "-e", "signed-integer", "-t", "raw", raw,
                                  "trim", "0", "3"}) != 0)
        return {};
    QFile file(raw);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// What libcodec2 makes of the two Codec2 fields of each frame, in order.
QByteArray decodeWithLibcodec2(const QList<QByteArray>& frames)
{
    CODEC2* c2 = codec2_create(CODEC2_MODE_3200);
    QByteArray pcm;
    for (const QByteArray& f : frames) {
        for (qsizetype offset : {36, 44}) {
            short samples[160];
            codec2_decode(c2, samples, reinterpret_cast<const unsigned char*>(f.constData() + offset));
            pcm.append(reinterpret_cast<const char*>(samples), sizeof samples);
        }
    }
    codec2_destroy(c2);
    return pcm;
}

quint16 frameNumberOf(const QByteArray& f)
{
    return quint16((quint8(f.at(34)) << 8) | quint8(f.at(35)));
}

} // namespace

extern "C" int codec2_rand(void);
extern "C" int codec2_rand(void)
{
    g_codec2Seed = g_codec2Seed * 1103515245 + 12345;
    return int((g_codec2Seed / 65536) % 32768);
}

class TestM17Voice : public QObject {
    Q_OBJECT

private slots:
    void speechArrivesAsLibcodec2DecodesIt()
    {
        const QByteArray pcm = speech();
        if (pcm.isEmpty())
            QSKIP("espeak-ng or sox failed; install them with scripts/install-deps.sh");
        QCOMPARE(pcm.size(), 3 * 8000 * 2);

        M17Reflector reflector;
        M17Client a, b;
        M17Voice voiceA, voiceB;
        connect(&voiceA, &M17Voice::frameReady, &a, &M17Client::sendFrame);
        connect(&b, &M17Client::voiceFrameRx, &voiceB, &M17Voice::onVoiceFrame);
        QByteArray heard;
        connect(&voiceB, &M17Voice::rxPcm, this, [&](const QByteArray& p) { heard += p; });
        QSignalSpy talkers(&voiceB, &M17Voice::talkerStarted);
        QVERIFY(a.linkTo("127.0.0.1", reflector.port(), "XX0ABC", 'M'));
        QVERIFY(b.linkTo("127.0.0.1", reflector.port(), "XX9ZZZ", 'M'));
        QTRY_COMPARE(a.state(), M17Client::State::Linked);
        QTRY_COMPARE(b.state(), M17Client::State::Linked);

        voiceA.startTx("XX0ABC");
        for (qsizetype at = 0; at < pcm.size(); at += kFrame20ms)
            voiceA.pushMicPcm(pcm.mid(at, kFrame20ms));
        voiceA.stopTx();
        // Everything is encoded; what follows are the receiver's decodes only.
        resetCodec2Random();

        // 3 s are 75 frames of 40 ms; the last, with the end flag, goes out five times.
        QTRY_COMPARE(reflector.relayed.size(), 75 + 5);
        // The receiver plays the end frame once.
        QTRY_COMPARE(heard.size(), (75 + 1) * 640);
        const QList<QByteArray> frames = reflector.relayed;
        for (int i = 0; i < 75; ++i) {
            QCOMPARE(frameNumberOf(frames.at(i)), quint16(i));
            QCOMPARE(streamIdOf(frames.at(i)), voiceA.txStreamId());
            QCOMPARE(sourceOf(frames.at(i)), QStringLiteral("XX0ABC"));
        }
        for (int i = 75; i < 80; ++i) {
            QVERIFY(isEndOfStream(frames.at(i)));
            QCOMPARE(frames.at(i), frames.at(75));
        }
        QVERIFY(!isEndOfStream(frames.at(74)));
        resetCodec2Random();
        QCOMPARE(heard, decodeWithLibcodec2(frames.first(76)));
        // The speech is really there: not silence after decoding.
        const auto* s = reinterpret_cast<const qint16*>(heard.constData());
        QVERIFY(*std::max_element(s, s + heard.size() / 2) > 3000);
        // The stream is announced once, not again for the repeats of its end frame.
        QCOMPARE(talkers.count(), 1);
        for (const QVariantList& t : talkers) {
            QCOMPARE(t.at(0).toString(), QStringLiteral("XX0ABC"));
            QCOMPARE(t.at(1).toUInt(), uint(voiceA.txStreamId()));
        }
    }

    void shortPttSendsOnlyTheEndFrames()
    {
        M17Voice voice;
        QSignalSpy frames(&voice, &M17Voice::frameReady);
        voice.startTx("XX0ABC");
        voice.pushMicPcm(QByteArray(kFrame20ms, '\0'));
        voice.pushMicPcm(QByteArray(100, '\0'));
        voice.stopTx();
        QCOMPARE(frames.count(), 5);
        for (const QVariantList& f : frames) {
            QVERIFY(isEndOfStream(f.first().toByteArray()));
            QCOMPARE(frameNumberOf(f.first().toByteArray()), quint16(0x8000));
        }
        // Not transmitting: microphone PCM goes nowhere.
        voice.pushMicPcm(QByteArray(2000, '\0'));
        voice.stopTx();
        QCOMPARE(frames.count(), 5);
    }

    void frameNumberWrapsAfter15Bits()
    {
        M17Voice voice;
        QList<quint16> numbers;
        connect(&voice, &M17Voice::frameReady, this, [&](const QByteArray& f) { numbers.append(frameNumberOf(f)); });
        voice.startTx("XX0ABC");
        const QByteArray block(640 * 256, '\0');
        for (int i = 0; i < 0x8000 / 256 + 1; ++i)
            voice.pushMicPcm(block);
        QCOMPARE(numbers.at(0x7FFF), quint16(0x7FFF));
        QCOMPARE(numbers.at(0x8000), quint16(0));
        QCOMPARE(numbers.at(0x8001), quint16(1));
    }

    void receiveFollowsStreamIdsAndIgnoresCrc()
    {
        M17Voice voice;
        QSignalSpy talkers(&voice, &M17Voice::talkerStarted);
        QSignalSpy pcm(&voice, &M17Voice::rxPcm);
        const QByteArray c2(8, '\0');
        QByteArray one = buildStreamFrame("XX1AAA", "ALL", 100, 0, false, c2, c2);
        const QByteArray two = buildStreamFrame("XX2BBB", "ALL", 200, 0, false, c2, c2);
        voice.onVoiceFrame(one);
        voice.onVoiceFrame(one);
        // A second stream id without an end frame of the first is a new talker.
        voice.onVoiceFrame(two);
        // A broken CRC still plays.
        one[52] = char(one.at(52) ^ 0xFF);
        voice.onVoiceFrame(one);
        QCOMPARE(talkers.count(), 3);
        QCOMPARE(talkers.at(1).at(0).toString(), QStringLiteral("XX2BBB"));
        QCOMPARE(talkers.at(2).at(1).toUInt(), 100u);
        QCOMPARE(pcm.count(), 8);
        // Wrong size or magic never reaches the decoder.
        voice.onVoiceFrame(one.left(53));
        voice.onVoiceFrame(QByteArray("M18 ") + one.mid(4));
        QCOMPARE(pcm.count(), 8);

        // The end frame repeated by the reflector neither names a talker nor plays again.
        const QByteArray end = buildStreamFrame("XX1AAA", "ALL", 100, 5, true, c2, c2);
        voice.onVoiceFrame(end);
        voice.onVoiceFrame(end);
        voice.onVoiceFrame(end);
        QCOMPARE(talkers.count(), 3);
        QCOMPARE(pcm.count(), 10);
    }
};

QTEST_GUILESS_MAIN(TestM17Voice)
#include "tst_m17voice.moc"
