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

// A simulated chip and the driver opened on it over the pseudo-terminal or UDP.
struct Rig {
    SimulatedAmbeChip chip;
    Dv3000 dv;

    // Opens and waits for the identity.
    bool open(bool serial)
    {
        QSignalSpy detected(&dv, &Dv3000::detected);
        if (serial) {
            const QString path = chip.openPty();
            if (path.isEmpty() || !dv.openPort(path))
                return false;
        } else {
            const quint16 port = chip.listenUdp();
            if (port == 0 || !dv.openUdp(QStringLiteral("127.0.0.1"), port))
                return false;
        }
        return (detected.count() == 1 || detected.wait(3000)) &&
               QTest::qWaitFor([this] { return !dv.versionText().isEmpty(); });
    }
};

} // namespace

class TestDv3000 : public QObject {
    Q_OBJECT

private:
    TempConfigHome home;

private slots:
    void detectsChip_data()
    {
        QTest::addColumn<int>("replies");
        QTest::addColumn<QString>("product");
        QTest::newRow("AMBE3000R") << int(SimulatedAmbeChip::IdentityReplies::Normal) << "AMBE3000R";
        // Firmware that answers the product id request with its version is an AMBE3000.
        QTest::newRow("version only") << int(SimulatedAmbeChip::IdentityReplies::VersionOnly) << "AMBE3000";
    }

    void detectsChip()
    {
        QFETCH(int, replies);
        QFETCH(QString, product);
        Rig r;
        r.chip.setIdentityReplies(SimulatedAmbeChip::IdentityReplies(replies));
        QSignalSpy detected(&r.dv, &Dv3000::detected);
        QVERIFY(r.open(false));
        QCOMPARE(detected.count(), 1);
        QCOMPARE(detected.at(0).at(0).toString(), product);
        QCOMPARE(r.dv.productId(), product);
        QVERIFY(r.dv.isUdp());
        QVERIFY(r.dv.currentPort().startsWith(QStringLiteral("udp://127.0.0.1:")));
        if (product == QLatin1String("AMBE3000R")) {
            QTRY_COMPARE(r.dv.versionText(), QStringLiteral("V120.E100.XXXX.C106.G514.R009.B0010411.C0020208"));
        } else { // the version comes with the detection, and a product id request follows: two in all
            QVERIFY(!detected.at(0).at(1).toString().isEmpty());
            QTRY_COMPARE(r.chip.productIdRequests(), 2);
        }
        // The later version reply does not announce the chip a second time.
        QVERIFY(!detected.wait(100));
    }

    void framing()
    {
        Rig r;
        QVERIFY(r.open(true));
        QSignalSpy pcm(&r.dv, &Dv3000::pcmFrameReady);
        const QByteArray pkt = speechPacket();

        const QList<std::pair<QList<QByteArray>, int>> cases = {
            {{pkt.left(100), pkt.mid(100)}, 1},             // one packet over two reads
            {{pkt + pkt}, 2},                               // two packets in one read
            {{QByteArray::fromHex("00ff1337a5") + pkt}, 1}, // garbage skipped byte by byte
            {{speechPacket(char(0xF1)) + pkt}, 2},          // only the low nibble of byte 1 is LEN
        };
        for (const auto& [chunks, count] : cases) {
            for (const QByteArray& chunk : chunks)
                r.chip.sendRaw(chunk);
            QTRY_COMPARE(pcm.count(), count);
            while (!pcm.isEmpty())
                checkSpeechSamples(pcm.takeFirst().at(0).toByteArray());
        }
        // A channel packet gives its frame bytes.
        QSignalSpy ambe(&r.dv, &Dv3000::ambeFrameReady);
        r.chip.sendRaw(QByteArray::fromHex("61000b010148b9e881526173002a6b"));
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
        // The chip reads the last request on its own thread, maybe after the failure is reported.
        QTRY_COMPARE(chip.probeBauds(), expected);
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

    void setRateWritesTheParameterWords_data()
    {
        QTest::addColumn<bool>("serial");
        QTest::newRow("serial") << true;
        QTest::newRow("udp") << false;
    }

    void setRateWritesTheParameterWords()
    {
        QFETCH(bool, serial);
        QVERIFY(!Dv3000().setRate(33)); // not open
        Rig r;
        QVERIFY(r.open(serial));
        QVERIFY(r.dv.setRate(34));
        QCOMPARE(r.chip.lastRateWords(), rate34Words);
        QCOMPARE(r.dv.rate(), 34);
        QCOMPARE(r.chip.configureRequests(), 1);
        // The active rate is not sent again.
        QVERIFY(r.dv.setRate(34));
        QCOMPARE(r.chip.configureRequests(), 1);
        QVERIFY(r.dv.setRate(33));
        QCOMPARE(r.chip.lastRateWords(), rate33Words);
        QVERIFY(r.dv.setRate(34));
        QVERIFY(r.dv.setRate(35));
        QCOMPARE(r.chip.lastRateWords(), rate33Words);
        QVERIFY(r.dv.setRate(34));
        QVERIFY(r.dv.setRate(59));
        QCOMPARE(r.chip.lastRateWords(), rate33Words);
        QVERIFY(r.dv.setRate(49));
        QCOMPARE(r.chip.lastRateWords(), QByteArray::fromHex("013007634000000000000048"));
        QCOMPARE(r.chip.configureRequests(), 7);
        // Rates outside the table write nothing.
        QVERIFY(!r.dv.setRate(32));
        QVERIFY(!r.dv.setRate(64));
        QCOMPARE(r.chip.configureRequests(), 7);
        QCOMPARE(r.dv.rate(), 49);
    }

    // Stale bytes ahead of the answer are drained; a refusal fails at once; silence after two attempts.
    void setRateReplies_data()
    {
        QTest::addColumn<int>("initStatus");
        QTest::addColumn<bool>("ok");
        QTest::addColumn<int>("attempts");
        QTest::newRow("stale bytes") << 0 << true << 1;
        QTest::newRow("refused") << 5 << false << 1;
        QTest::newRow("no answer") << -1 << false << 2;
    }

    void setRateReplies()
    {
        QFETCH(int, initStatus);
        QFETCH(bool, ok);
        QFETCH(int, attempts);
        Rig r;
        r.chip.setInitStatus(initStatus);
        QVERIFY(r.open(false));
        if (initStatus == 0) {
            r.chip.sendRaw(QByteArray::fromHex("0102030405"));
            QTest::ignoreMessage(QtDebugMsg, "Dv3000 setRate attempt 1 pre-drain skipping 5 B: 01 02 03 04 05");
        } else if (initStatus > 0) {
            QTest::ignoreMessage(QtWarningMsg, "Dv3000 setRate: chip REJECTED ConfigureChannel with status=0x 5");
        } else {
            QTest::ignoreMessage(QtWarningMsg, QRegularExpression("attempt [12] timeout, no INIT ack"));
            QTest::ignoreMessage(QtWarningMsg, QRegularExpression("attempt [12] timeout, no INIT ack"));
            QTest::ignoreMessage(QtWarningMsg, "Dv3000 setRate: both attempts timed out — chip init failed");
        }
        QCOMPARE(r.dv.setRate(33), ok);
        QCOMPARE(r.dv.rate(), ok ? 33 : -1);
        QCOMPARE(r.chip.configureRequests(), attempts);
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
        Rig r;
        QVERIFY(r.open(serial));
        QSignalSpy pcm(&r.dv, &Dv3000::pcmFrameReady);
        QSignalSpy failed(&r.dv, &Dv3000::failed);
        const QByteArray tone = SimulatedAmbeChip::sine(8000, 1000);
        const QByteArray frame = SimulatedAmbeChip::encodeFrame(reinterpret_cast<const qint16*>(tone.constData()));
        if (!junk.isEmpty())
            r.chip.sendRaw(junk);
        r.chip.dropReplies(dropped);
        for (int i = 0; i < dropped; ++i)
            r.dv.postChannel(frame, 72);
        // The lost answers free their places after 200 ms; the cut-off piece goes stale.
        QTRY_COMPARE(r.dv.framesInFlight(), 0);
        QTest::qWait(100);
        for (int i = 0; i < 10; ++i)
            r.dv.postChannel(frame, 72);
        QTRY_COMPARE(pcm.count(), 10);
        for (const QList<QVariant>& each : std::as_const(pcm)) {
            const SimulatedAmbeChip::Tone heard = SimulatedAmbeChip::analyse(each.at(0).toByteArray());
            QVERIFY(qAbs(heard.frequency - 1000) <= 10);
        }
        QCOMPARE(failed.count(), 0);
    }

    void tenLostRepliesInARowFailTheChip()
    {
        Rig r;
        QVERIFY(r.open(false));
        QSignalSpy failed(&r.dv, &Dv3000::failed);
        r.chip.dropReplies(10);
        const QByteArray frame(9, '\0');
        for (int i = 0; i < 10; ++i)
            r.dv.postChannel(frame, 72);
        QTRY_COMPARE_WITH_TIMEOUT(failed.count(), 1, 5000);
        QVERIFY(failed.at(0).at(0).toString().endsWith("10 answers in a row lost"));
        QVERIFY(!r.dv.isOpen());
    }

    void fourthChannelFrameWaitsForASpeechReply()
    {
        Rig r;
        QVERIFY(r.open(false));
        QSignalSpy pcm(&r.dv, &Dv3000::pcmFrameReady);
        r.dv.setReplyTimeout(10000);
        r.chip.setHoldReplies(true);
        const QByteArray tone = SimulatedAmbeChip::sine(8000, 1000);
        const QByteArray frame = SimulatedAmbeChip::encodeFrame(reinterpret_cast<const qint16*>(tone.constData()));
        for (int i = 0; i < 4; ++i)
            r.dv.postChannel(frame, 72);
        QTRY_COMPARE(r.chip.packetsReceived(1), 3);
        QVERIFY(!pcm.wait(150));
        QCOMPARE(r.chip.packetsReceived(1), 3);
        r.chip.setHoldReplies(false);
        QTRY_COMPARE(pcm.count(), 4);
        QCOMPARE(r.chip.packetsReceived(1), 4);
        // The decoded speech is the tone that went in.
        const SimulatedAmbeChip::Tone heard = SimulatedAmbeChip::analyse(pcm.at(3).at(0).toByteArray());
        QVERIFY(qAbs(heard.level - 8000) <= 16);
        QVERIFY(qAbs(heard.frequency - 1000) <= 10);
        // Frames posted while closed are dropped.
        r.dv.close();
        r.dv.postChannel(frame, 72);
        QVERIFY(!pcm.wait(100));
        QCOMPARE(r.chip.packetsReceived(1), 4);
    }

    // Speech to a frame and back, queued over serial, then blocking; a late answer gives nothing.
    void speechBothWays()
    {
        Rig r;
        QVERIFY(r.open(true));
        QSignalSpy ambe(&r.dv, &Dv3000::ambeFrameReady);
        QSignalSpy pcm(&r.dv, &Dv3000::pcmFrameReady);
        r.dv.postSpeech(SimulatedAmbeChip::sine(12000, 440));
        QTRY_COMPARE(ambe.count(), 1);
        const QByteArray frame = ambe.at(0).at(0).toByteArray();
        QCOMPARE(frame.size(), 9);
        r.dv.postChannel(frame, 0);
        QTRY_COMPARE(pcm.count(), 1);
        const SimulatedAmbeChip::Tone heard = SimulatedAmbeChip::analyse(pcm.at(0).at(0).toByteArray());
        QVERIFY2(qAbs(heard.level - 12000) <= 16, qPrintable(QString::number(heard.level)));
        QVERIFY2(qAbs(heard.frequency - 440) <= 10, qPrintable(QString::number(heard.frequency)));

        const QByteArray tone = SimulatedAmbeChip::sine(6000, 700);
        const QByteArray coded = r.dv.encodeSpeech(reinterpret_cast<const qint16*>(tone.constData()));
        QCOMPARE(coded.size(), 9);
        QVERIFY(qAbs(SimulatedAmbeChip::analyse(r.dv.decodeChannel(coded, 72)).frequency - 700) <= 10);
        QCOMPARE(r.dv.decodeBatch({coded, QByteArray(), coded, coded}, 72).size(), 3 * 320);
        r.chip.setDelay(200);
        QTest::ignoreMessage(QtInfoMsg, QRegularExpression(QStringLiteral("^Dv3000 decode: no PKT_SPEECH reply")));
        QVERIFY(r.dv.decodeChannel(coded, 72).isEmpty());
    }
};

ZL_THREADED_TEST_MAIN(QCoreApplication, TestDv3000)
#include "tst_dv3000.moc"
