#include "SimulatedAmbeChip.h"
#include "TempConfigHome.h"
#include "ThreadedTestMain.h"
#include "hw/Dv3000.h"

#include <QRegularExpression>
#include <QSignalSpy>
#include <QTest>

using zl::hw::Dv3000;

namespace {

// A speech packet as the chip sends it: 160 big-endian samples of value 100 * i - 8000.
QByteArray speechPacket(char lenHigh = 0x01)
{
    QByteArray pkt = QByteArray::fromHex("61");
    pkt.append(lenHigh).append(QByteArray::fromHex("420200A0"));
    for (int i = 0; i < 160; ++i) {
        const quint16 s = quint16(qint16(100 * i - 8000));
        pkt.append(char(s >> 8)).append(char(s & 0xFF));
    }
    return pkt;
}

void checkSpeechSamples(const QByteArray& pcm)
{
    QCOMPARE(pcm.size(), 320);
    const auto* s = reinterpret_cast<const qint16*>(pcm.constData());
    for (int i = 0; i < 160; ++i)
        QCOMPARE(int(s[i]), 100 * i - 8000);
}

const QByteArray rate33Words = QByteArray::fromHex("04310754240000000000 6F48");
const QByteArray rate34Words = QByteArray::fromHex("04310754000000000000 7031");

} // namespace

class TestDv3000 : public QObject {
    Q_OBJECT

private:
    TempConfigHome home;

    // Opens dv on the chip over UDP and waits for the identity.
    static void openUdp(Dv3000& dv, SimulatedAmbeChip& chip)
    {
        QSignalSpy detected(&dv, &Dv3000::detected);
        const quint16 port = chip.listenUdp();
        QVERIFY(port != 0);
        QVERIFY(dv.openUdp(QStringLiteral("127.0.0.1"), port));
        QVERIFY(detected.count() == 1 || detected.wait(3000));
        QTRY_VERIFY(!dv.versionText().isEmpty());
    }

    static void openPty(Dv3000& dv, SimulatedAmbeChip& chip)
    {
        QSignalSpy detected(&dv, &Dv3000::detected);
        const QString path = chip.openPty();
        QVERIFY(!path.isEmpty());
        QVERIFY2(dv.openPort(path), qPrintable(dv.errorText()));
        QVERIFY(detected.count() == 1 || detected.wait(3000));
        QTRY_VERIFY(!dv.versionText().isEmpty());
    }

private slots:
    void detectsChipOverUdp()
    {
        SimulatedAmbeChip chip;
        Dv3000 dv;
        QSignalSpy detected(&dv, &Dv3000::detected);
        openUdp(dv, chip);
        if (QTest::currentTestFailed())
            return;
        QCOMPARE(detected.count(), 1);
        QCOMPARE(detected.at(0).at(0).toString(), QStringLiteral("AMBE3000R"));
        QTRY_COMPARE(dv.versionText(), QStringLiteral("V120.E100.XXXX.C106.G514.R009.B0010411.C0020208"));
        QCOMPARE(dv.productId(), QStringLiteral("AMBE3000R"));
        QVERIFY(dv.isUdp());
        QVERIFY(dv.currentPort().startsWith(QStringLiteral("udp://127.0.0.1:")));
        // The later version reply does not announce the chip a second time.
        QVERIFY(!detected.wait(100));
    }

    void versionOnlyChipIsAmbe3000()
    {
        SimulatedAmbeChip chip;
        chip.setIdentityReplies(SimulatedAmbeChip::IdentityReplies::VersionOnly);
        Dv3000 dv;
        QSignalSpy detected(&dv, &Dv3000::detected);
        openUdp(dv, chip);
        if (QTest::currentTestFailed())
            return;
        QCOMPARE(detected.at(0).at(0).toString(), QStringLiteral("AMBE3000"));
        QVERIFY(!detected.at(0).at(1).toString().isEmpty());
        QCOMPARE(dv.productId(), QStringLiteral("AMBE3000"));
        // A product id request follows the version reply: two in all.
        QTRY_COMPARE(chip.productIdRequests(), 2);
    }

    void framing()
    {
        SimulatedAmbeChip chip;
        Dv3000 dv;
        openPty(dv, chip);
        if (QTest::currentTestFailed())
            return;
        QSignalSpy pcm(&dv, &Dv3000::pcmFrameReady);
        const QByteArray pkt = speechPacket();

        // One packet over two reads.
        chip.sendRaw(pkt.left(100));
        QVERIFY(!pcm.wait(20));
        chip.sendRaw(pkt.mid(100));
        QTRY_COMPARE(pcm.count(), 1);
        checkSpeechSamples(pcm.takeFirst().at(0).toByteArray());

        // Two packets in one read.
        chip.sendRaw(pkt + pkt);
        QTRY_COMPARE(pcm.count(), 2);
        checkSpeechSamples(pcm.takeFirst().at(0).toByteArray());
        checkSpeechSamples(pcm.takeFirst().at(0).toByteArray());

        // Garbage ahead of a packet is skipped byte by byte.
        chip.sendRaw(QByteArray::fromHex("00ff1337a5") + pkt);
        QTRY_COMPARE(pcm.count(), 1);
        checkSpeechSamples(pcm.takeFirst().at(0).toByteArray());

        // Only the low nibble of byte 1 belongs to LEN; the packet behind it is still found.
        chip.sendRaw(speechPacket(char(0xF1)) + pkt);
        QTRY_COMPARE(pcm.count(), 2);
        checkSpeechSamples(pcm.takeFirst().at(0).toByteArray());
        checkSpeechSamples(pcm.takeFirst().at(0).toByteArray());

        // A channel packet gives its frame bytes.
        QSignalSpy ambe(&dv, &Dv3000::ambeFrameReady);
        chip.sendRaw(QByteArray::fromHex("61000b010148b9e881526173002a6b"));
        QTRY_COMPARE(ambe.count(), 1);
        QCOMPARE(ambe.at(0).at(0).toByteArray(), QByteArray::fromHex("b9e881526173002a6b"));
    }

    void silentChipWalksBaudsThenFails()
    {
        SimulatedAmbeChip chip;
        chip.setIdentityReplies(SimulatedAmbeChip::IdentityReplies::Silent);
        const QString path = chip.openPty();
        QVERIFY(!path.isEmpty());
        Dv3000 dv;
        dv.setProbeInterval(5);
        QSignalSpy failed(&dv, &Dv3000::failed);
        QSignalSpy detected(&dv, &Dv3000::detected);
        QTest::ignoreMessage(
            QtInfoMsg, QRegularExpression(QStringLiteral("probe timeout on .* retrying at next baud \\(idx 1 \\)")));
        QTest::ignoreMessage(
            QtInfoMsg, QRegularExpression(QStringLiteral("probe timeout on .* retrying at next baud \\(idx 2 \\)")));
        QTest::ignoreMessage(QtInfoMsg, QRegularExpression(QStringLiteral("\\( 10 retries, all bauds\\)")));
        QVERIFY(dv.openPort(path));
        QVERIFY(failed.wait(10000));
        QCOMPARE(failed.at(0).at(0).toString(), QStringLiteral("no version response on ") + path);
        QCOMPARE(dv.errorText(), QStringLiteral("No version response (chip not responding)"));
        QCOMPARE(detected.count(), 0);
        // Ten requests per baud; a port that does not name itself a DV3K starts at 460800.
        QList<int> expected;
        for (int baud : {460800, 230400, 115200}) {
            for (int i = 0; i < 10; ++i)
                expected << baud;
        }
        QCOMPARE(chip.probeBauds(), expected);
    }

    void openOfMissingPortFails()
    {
        Dv3000 dv;
        QSignalSpy failed(&dv, &Dv3000::failed);
        QVERIFY(!dv.openPort(QStringLiteral("/dev/zl-no-such-port")));
        QCOMPARE(failed.count(), 1);
        QVERIFY(failed.at(0).at(0).toString().startsWith(QStringLiteral("open /dev/zl-no-such-port: ")));
        QVERIFY(!dv.errorText().isEmpty());
        QVERIFY(!dv.isOpen());
    }

    void setRateOverSerial()
    {
        SimulatedAmbeChip chip;
        Dv3000 dv;
        openPty(dv, chip);
        if (QTest::currentTestFailed())
            return;
        QVERIFY(dv.setRate(34));
        QCOMPARE(chip.lastRateWords(), rate34Words);
        QCOMPARE(dv.rate(), 34);
        QCOMPARE(chip.configureRequests(), 1);
        // The active rate is not sent again.
        QVERIFY(dv.setRate(34));
        QCOMPARE(chip.configureRequests(), 1);
    }

    void setRateParameterWords()
    {
        SimulatedAmbeChip chip;
        Dv3000 dv;
        openUdp(dv, chip);
        if (QTest::currentTestFailed())
            return;
        QVERIFY(dv.setRate(33));
        QCOMPARE(chip.lastRateWords(), rate33Words);
        QVERIFY(dv.setRate(34));
        QVERIFY(dv.setRate(35));
        QCOMPARE(chip.lastRateWords(), rate33Words);
        QVERIFY(dv.setRate(34));
        QVERIFY(dv.setRate(59));
        QCOMPARE(chip.lastRateWords(), rate33Words);
        QVERIFY(dv.setRate(49));
        QCOMPARE(chip.lastRateWords(), QByteArray::fromHex("013007634000000000000048"));
        QCOMPARE(chip.configureRequests(), 6);
        // Rates outside the table write nothing.
        QVERIFY(!dv.setRate(32));
        QVERIFY(!dv.setRate(64));
        QCOMPARE(chip.configureRequests(), 6);
        QCOMPARE(dv.rate(), 49);
    }

    void setRateDrainsStaleBytes()
    {
        SimulatedAmbeChip chip;
        Dv3000 dv;
        openUdp(dv, chip);
        if (QTest::currentTestFailed())
            return;
        chip.sendRaw(QByteArray::fromHex("0102030405"));
        QTest::ignoreMessage(QtDebugMsg, "Dv3000 setRate attempt 1 pre-drain skipping 5 B: 01 02 03 04 05");
        QVERIFY(dv.setRate(33));
        QCOMPARE(dv.rate(), 33);
    }

    void setRateRejected()
    {
        SimulatedAmbeChip chip;
        chip.setInitStatus(5);
        Dv3000 dv;
        openUdp(dv, chip);
        if (QTest::currentTestFailed())
            return;
        QTest::ignoreMessage(QtWarningMsg, "Dv3000 setRate: chip REJECTED ConfigureChannel with status=0x 5");
        QVERIFY(!dv.setRate(33));
        QCOMPARE(dv.rate(), -1);
        QCOMPARE(chip.configureRequests(), 1);
    }

    void setRateTimesOutAfterTwoAttempts()
    {
        SimulatedAmbeChip chip;
        chip.setInitStatus(-1);
        Dv3000 dv;
        openUdp(dv, chip);
        if (QTest::currentTestFailed())
            return;
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("attempt 1 timeout, no INIT ack")));
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("attempt 2 timeout, no INIT ack")));
        QTest::ignoreMessage(QtWarningMsg, "Dv3000 setRate: both attempts timed out — chip init failed");
        QVERIFY(!dv.setRate(33));
        QCOMPARE(chip.configureRequests(), 2);
        QVERIFY(!dv.setRate(77));
    }

    void setRateNeedsAnOpenChip()
    {
        Dv3000 dv;
        QVERIFY(!dv.setRate(33));
    }

    void recoversAndDecodesTheNextStream_data()
    {
        QTest::addColumn<bool>("serial");
        QTest::addColumn<QByteArray>("junk");
        QTest::addColumn<int>("dropped");
        // A length field claiming 4095 bytes in a datagram of 24.
        QTest::newRow("malformed datagram") << false << QByteArray::fromHex("610fff02") + QByteArray(20, '\x11') << 0;
        QTest::newRow("truncated serial packet") << true << speechPacket().left(100) << 0;
        QTest::newRow("three lost replies") << false << QByteArray() << 3;
    }

    void recoversAndDecodesTheNextStream()
    {
        QFETCH(bool, serial);
        QFETCH(QByteArray, junk);
        QFETCH(int, dropped);
        SimulatedAmbeChip chip;
        Dv3000 dv;
        serial ? openPty(dv, chip) : openUdp(dv, chip);
        if (QTest::currentTestFailed())
            return;
        QSignalSpy pcm(&dv, &Dv3000::pcmFrameReady);
        QSignalSpy failed(&dv, &Dv3000::failed);
        const QByteArray tone = SimulatedAmbeChip::sine(8000, 1000);
        const QByteArray frame = SimulatedAmbeChip::encodeFrame(reinterpret_cast<const qint16*>(tone.constData()));
        if (!junk.isEmpty())
            chip.sendRaw(junk);
        chip.dropReplies(dropped);
        for (int i = 0; i < dropped; ++i)
            dv.postChannel(frame, 72);
        // The lost answers free their places after 200 ms; the cut-off piece goes stale.
        QTRY_COMPARE(dv.framesInFlight(), 0);
        QTest::qWait(100);
        for (int i = 0; i < 10; ++i)
            dv.postChannel(frame, 72);
        QTRY_COMPARE(pcm.count(), 10);
        for (const QList<QVariant>& each : std::as_const(pcm)) {
            const SimulatedAmbeChip::Tone heard = SimulatedAmbeChip::analyse(each.at(0).toByteArray());
            QVERIFY(qAbs(heard.frequency - 1000) <= 10);
        }
        QCOMPARE(failed.count(), 0);
    }

    void tenLostRepliesInARowFailTheChip()
    {
        SimulatedAmbeChip chip;
        Dv3000 dv;
        openUdp(dv, chip);
        if (QTest::currentTestFailed())
            return;
        QSignalSpy failed(&dv, &Dv3000::failed);
        chip.dropReplies(10);
        const QByteArray frame(9, '\0');
        for (int i = 0; i < 10; ++i)
            dv.postChannel(frame, 72);
        QTRY_COMPARE_WITH_TIMEOUT(failed.count(), 1, 5000);
        QVERIFY(failed.at(0).at(0).toString().endsWith("10 answers in a row lost"));
        QVERIFY(!dv.isOpen());
    }

    void fourthChannelFrameWaitsForASpeechReply()
    {
        SimulatedAmbeChip chip;
        Dv3000 dv;
        openUdp(dv, chip);
        if (QTest::currentTestFailed())
            return;
        QSignalSpy pcm(&dv, &Dv3000::pcmFrameReady);
        dv.setReplyTimeout(10000);
        chip.setHoldReplies(true);
        const QByteArray tone = SimulatedAmbeChip::sine(8000, 1000);
        const QByteArray frame = SimulatedAmbeChip::encodeFrame(reinterpret_cast<const qint16*>(tone.constData()));
        for (int i = 0; i < 4; ++i)
            dv.postChannel(frame, 72);
        QTRY_COMPARE(chip.packetsReceived(1), 3);
        QVERIFY(!pcm.wait(150));
        QCOMPARE(chip.packetsReceived(1), 3);
        chip.setHoldReplies(false);
        QTRY_COMPARE(pcm.count(), 4);
        QCOMPARE(chip.packetsReceived(1), 4);
        // The decoded speech is the tone that went in.
        const SimulatedAmbeChip::Tone heard = SimulatedAmbeChip::analyse(pcm.at(3).at(0).toByteArray());
        QVERIFY(qAbs(heard.level - 8000) <= 16);
        QVERIFY(qAbs(heard.frequency - 1000) <= 10);
        // Frames posted while closed are dropped.
        dv.close();
        dv.postChannel(frame, 72);
        QVERIFY(!pcm.wait(100));
        QCOMPARE(chip.packetsReceived(1), 4);
    }

    void speechRoundTripOverSerial()
    {
        SimulatedAmbeChip chip;
        Dv3000 dv;
        openPty(dv, chip);
        if (QTest::currentTestFailed())
            return;
        QSignalSpy ambe(&dv, &Dv3000::ambeFrameReady);
        QSignalSpy pcm(&dv, &Dv3000::pcmFrameReady);
        const QByteArray tone = SimulatedAmbeChip::sine(12000, 440);
        dv.postSpeech(tone);
        QTRY_COMPARE(ambe.count(), 1);
        const QByteArray frame = ambe.at(0).at(0).toByteArray();
        QCOMPARE(frame.size(), 9);
        dv.postChannel(frame, 0);
        QTRY_COMPARE(pcm.count(), 1);
        const SimulatedAmbeChip::Tone heard = SimulatedAmbeChip::analyse(pcm.at(0).at(0).toByteArray());
        QVERIFY2(qAbs(heard.level - 12000) <= 16, qPrintable(QString::number(heard.level)));
        QVERIFY2(qAbs(heard.frequency - 440) <= 10, qPrintable(QString::number(heard.frequency)));
    }

    void blockingCalls()
    {
        SimulatedAmbeChip chip;
        Dv3000 dv;
        openUdp(dv, chip);
        if (QTest::currentTestFailed())
            return;
        const QByteArray tone = SimulatedAmbeChip::sine(6000, 700);
        const QByteArray frame = dv.encodeSpeech(reinterpret_cast<const qint16*>(tone.constData()));
        QCOMPARE(frame.size(), 9);
        const QByteArray pcm = dv.decodeChannel(frame, 72);
        QCOMPARE(pcm.size(), 320);
        QVERIFY(qAbs(SimulatedAmbeChip::analyse(pcm).frequency - 700) <= 10);
        const QByteArray batch = dv.decodeBatch({frame, QByteArray(), frame, frame}, 72);
        QCOMPARE(batch.size(), 3 * 320);
        // A chip that answers late gives an empty result, and says so.
        chip.setDelay(200);
        QTest::ignoreMessage(QtInfoMsg, QRegularExpression(QStringLiteral("^Dv3000 decode: no PKT_SPEECH reply")));
        QVERIFY(dv.decodeChannel(frame, 72).isEmpty());
    }
};

ZL_THREADED_TEST_MAIN(QCoreApplication, TestDv3000)
#include "tst_dv3000.moc"
