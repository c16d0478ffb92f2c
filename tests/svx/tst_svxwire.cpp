// Codecs of the reflector protocol: control framing, message payloads, the HMAC of the
// login, SRV ordering, AES-128-GCM sealing and the 8/16 kHz conversions.
#include "svx/SvxAudio.h"
#include "svx/SvxReflectorConfig.h"
#include "svx/SvxReplayWindow.h"
#include "svx/SvxSrv.h"
#include "svx/SvxUdpCipher.h"
#include "svx/SvxWire.h"

#include <QTest>

using namespace zl::svx;

namespace {

QByteArray be32(quint32 v)
{
    return QByteArray::fromHex(QByteArray::number(v, 16).rightJustified(8, '0'));
}

QByteArray pcm(std::initializer_list<qint16> samples)
{
    QByteArray out;
    for (qint16 s : samples)
        out.append(reinterpret_cast<const char*>(&s), 2);
    return out;
}

QList<qint16> samples(const QByteArray& bytes)
{
    QList<qint16> out(bytes.size() / 2);
    memcpy(out.data(), bytes.constData(), size_t(out.size()) * 2);
    return out;
}

} // namespace

class TestSvxWire : public QObject {
    Q_OBJECT

private slots:
    // Sliding anti-replay window of 64 counters, as in IPsec: late ones inside the window
    // pass once, repeats and ones older than the window never.
    void replayWindow_data()
    {
        QTest::addColumn<QList<quint32>>("counters");
        QTest::addColumn<QString>("accepted");
        QTest::newRow("in order, then repeats") << QList<quint32>{1, 2, 3, 3, 2} << "11100";
        QTest::newRow("late inside the window") << QList<quint32>{10, 5, 5, 9} << "1101";
        QTest::newRow("edge of the window") << QList<quint32>{100, 37, 36} << "110";
        QTest::newRow("jump past the window") << QList<quint32>{1, 200, 137, 136, 1} << "11100";
        QTest::newRow("counter zero first") << QList<quint32>{0, 0, 1} << "101";
    }
    void replayWindow()
    {
        QFETCH(QList<quint32>, counters);
        zl::svx::SvxReplayWindow window;
        QString got;
        for (quint32 c : counters)
            got += window.accept(c) ? u'1' : u'0';
        QTEST(got, "accepted");
    }

    void framesSplitJoinedAndStalled()
    {
        // Type 104, payload: tg 9, callsign "AB".
        const QByteArray talker = QByteArray::fromHex("0000000a"
                                                      "0068"
                                                      "00000009"
                                                      "0002"
                                                      "4142");
        const QByteArray heartbeat = QByteArray::fromHex("00000002"
                                                         "0001");

        // Split: nothing until the last byte is there.
        QList<Frame> frames;
        for (int cut = 0; cut < talker.size(); ++cut) {
            frames.clear();
            QCOMPARE(takeFrames(talker.left(cut), frames), 0);
            QVERIFY(frames.isEmpty());
        }
        QCOMPARE(takeFrames(talker, frames), talker.size());
        QCOMPARE(frames.size(), 1);
        QCOMPARE(frames.first().type, quint16(104));
        QCOMPARE(parseTalker(frames.first().payload)->callsign, QStringLiteral("AB"));
        QCOMPARE(parseTalker(frames.first().payload)->tg, 9u);

        // Joined: three frames in one read, in order, all consumed.
        frames.clear();
        const QByteArray three = heartbeat + talker + heartbeat;
        QCOMPARE(takeFrames(three, frames), three.size());
        QCOMPARE(frames.size(), 3);
        QCOMPARE(frames.at(0).type, quint16(1));
        QCOMPARE(frames.at(1).type, quint16(104));
        QCOMPARE(frames.at(2).type, quint16(1));

        // Absurd lengths stall the walk: nothing behind them comes out.
        for (quint32 bad : {0u, 1u, 0x100001u}) {
            frames.clear();
            QCOMPARE(takeFrames(heartbeat + be32(bad) + "\x00\x01" + heartbeat, frames), heartbeat.size());
            QCOMPARE(frames.size(), 1);
        }
        // The largest length is legal and simply waits for its bytes.
        frames.clear();
        QCOMPARE(takeFrames(be32(0x100000) + "\x00\x01", frames), 0);

        QCOMPARE(encodeFrame(106, encodeSelectTg(0x01020304)), QByteArray::fromHex("00000006006a01020304"));
    }

    void messagePayloads()
    {
        QCOMPARE(encodeProtoVer(3, 0), QByteArray::fromHex("00030000"));
        QCOMPARE(encodeTgMonitor({240, 9, 91, 9, 2}), QByteArray::fromHex("0004"
                                                                          "00000002"
                                                                          "00000009"
                                                                          "0000005b"
                                                                          "000000f0"));
        QCOMPARE(encodeTgMonitor({}), QByteArray::fromHex("0000"));
        QCOMPARE(encodeAuthResponse("SM0X", QByteArray(2, 'z')), QByteArray::fromHex("0004534d3058"
                                                                                     "00027a7a"));
        QCOMPARE(encodeNodeInfoV3("IVIVIV", QByteArray(16, 'k'), "{}"),
                 QByteArray::fromHex("0006") + "IVIVIV" + QByteArray::fromHex("0010") + QByteArray(16, 'k') +
                     QByteArray::fromHex("0002") + "{}");

        // Server info: reserved, id 7, nodes [A, BB], codecs [OPUS].
        const QByteArray info = QByteArray::fromHex("0000"
                                                    "0007"
                                                    "0002"
                                                    "000141"
                                                    "00024242"
                                                    "0001"
                                                    "00044f505553");
        auto parsed = parseServerInfo(info);
        QVERIFY(parsed);
        QCOMPARE(parsed->clientId, quint16(7));
        QCOMPARE(parsed->nodes, QStringList({"A", "BB"}));
        QCOMPARE(parsed->codecs, QStringList({"OPUS"}));
        // Truncated inside the codec list: what was read counts.
        parsed = parseServerInfo(info.left(info.size() - 2));
        QVERIFY(parsed);
        QCOMPARE(parsed->nodes, QStringList({"A", "BB"}));
        QVERIFY(parsed->codecs.isEmpty());
        // Truncated inside the node list: the nodes before the cut count.
        parsed = parseServerInfo(info.left(11));
        QVERIFY(parsed);
        QCOMPARE(parsed->nodes, QStringList({"A"}));
        QVERIFY(!parseServerInfo(info.left(3)));

        // Node list: a truncated element refuses the whole message.
        QCOMPARE(*parseNodeList(QByteArray::fromHex("0002000141000142")), QStringList({"A", "B"}));
        QVERIFY(!parseNodeList(QByteArray::fromHex("00020001410001")));

        // Talkers: under 4 bytes refused, a missing or cut callsign is empty.
        QVERIFY(!parseTalker(QByteArray::fromHex("000000")));
        QCOMPARE(parseTalker(QByteArray::fromHex("0000005b"))->callsign, QString());
        QCOMPARE(parseTalker(QByteArray::fromHex("0000005b000541"))->callsign, QString());

        QCOMPARE(parseError(QByteArray::fromHex("00024e4f")), QStringLiteral("NO"));
        QCOMPARE(parseError(QByteArray::fromHex("00094e4f")), QString());
        QVERIFY(!parseString(QByteArray::fromHex("0003")));
        QCOMPARE(*parseAuthChallenge(QByteArray::fromHex("0000")), QByteArray());
    }

    void hmacSha1MatchesRfc2202()
    {
        QCOMPARE(hmacSha1("Jefe", "what do ya want for nothing?").toHex(),
                 QByteArray("effcdf6ae5eb2fa2d27416d5f184df9c259a7c79"));
    }

    void srvOrdering()
    {
        QVERIFY(!pickSrvRecord({}));
        QCOMPARE(pickSrvRecord({{"a", 1, 10, 100}, {"b", 2, 5, 0}})->target, QStringLiteral("b"));
        QCOMPARE(pickSrvRecord({{"a", 1, 5, 10}, {"b", 2, 5, 60}, {"c", 3, 7, 90}})->target, QStringLiteral("b"));
        QCOMPARE(pickSrvRecord({{"x", 0, 1, 1}})->port, quint16(0));
    }

    void reflectorKeysAndMonitorLists()
    {
        using Split = QPair<QString, quint16>;
        QCOMPARE(splitReflectorKey("svx.example.org"), Split("svx.example.org", 5300));
        QCOMPARE(splitReflectorKey("svx.example.org:5310"), Split("svx.example.org", 5310));
        QCOMPARE(splitReflectorKey("host:abc"), Split("host", 0));
        QCOMPARE(splitReflectorKey("host:70000"), Split("host", 0));
        QCOMPARE(splitReflectorKey(":5310"), Split(":5310", 5300));
        QCOMPARE(parseMonitorTgs(" 91, 240\t9,,x 4294967295 4294967296 -1"), QList<quint32>({91, 240, 9, 4294967295u}));
        QVERIFY(parseMonitorTgs("").isEmpty());
    }

    void gcmKnownAnswer()
    {
        // AES-128-GCM test case 2 of the GCM specification: zero key, zero IV, one zero block;
        // the 8-byte tag is the prefix of the published 16-byte tag.
        QByteArray tag;
        const QByteArray c = gcmSeal(QByteArray(16, 0), QByteArray(12, 0), {}, QByteArray(16, 0), tag);
        QCOMPARE(c.toHex(), QByteArray("0388dace60b6a392f328c2b971b2fe78"));
        QCOMPARE(tag.toHex(), QByteArray("ab6e47d42cec13bd"));
        QCOMPARE(*gcmOpen(QByteArray(16, 0), QByteArray(12, 0), {}, c, tag), QByteArray(16, 0));
        tag[7] = char(tag[7] ^ 1);
        QVERIFY(!gcmOpen(QByteArray(16, 0), QByteArray(12, 0), {}, c, tag));
    }

    void sealedDatagramLayout()
    {
        SvxUdpCipher cipher;
        QVERIFY(!cipher.ready());
        QVERIFY(cipher.seal(1, "\x00\x01", false).isEmpty());
        QVERIFY(cipher.generate());
        QVERIFY(cipher.ready());
        cipher.setClientId(0x1234);
        const QByteArray heartbeat = QByteArray::fromHex("0001");
        const QByteArray initial = cipher.seal(0, heartbeat, true);
        QCOMPARE(initial.size(), 16);
        QCOMPARE(initial.left(6).toHex(), QByteArray("000000001234"));
        const QByteArray later = cipher.seal(5, heartbeat, false);
        QCOMPARE(later.size(), 14);
        QCOMPARE(later.left(4).toHex(), QByteArray("00000005"));

        // What the reflector sends: IV with client id 0, header = counter.
        const QByteArray iv0 = cipher.ivRandBytes() + QByteArray::fromHex("0000"
                                                                          "00000009");
        QByteArray tag;
        const QByteArray body = gcmSeal(cipher.keyBytes(), iv0, QByteArray::fromHex("00000009"), heartbeat, tag);
        QByteArray datagram = QByteArray::fromHex("00000009") + tag + body;
        QCOMPARE(*cipher.open(datagram), heartbeat);
        // A node's own datagram carries its id in the IV, so it doesn't open as the reflector's.
        QVERIFY(!cipher.open(later));
        datagram[5] = char(datagram[5] ^ 0x40);
        QVERIFY(!cipher.open(datagram));
        QVERIFY(!cipher.open(datagram.left(11)));
        // Exactly 12 bytes: an empty inner message that still authenticates.
        const QByteArray iv1 = cipher.ivRandBytes() + QByteArray::fromHex("0000"
                                                                          "00000001");
        QVERIFY(gcmSeal(cipher.keyBytes(), iv1, QByteArray::fromHex("00000001"), {}, tag).isEmpty());
        QCOMPARE(*cipher.open(QByteArray::fromHex("00000001") + tag), QByteArray());
    }

    void sampleRateConversions()
    {
        const QByteArray down = pcm({32767, 32767, -3, 0, 5});
        QCOMPARE(samples(downsampleTo8k(reinterpret_cast<const qint16*>(down.constData()), 5)),
                 QList<qint16>({32767, -1}));
        const QList<qint16> one = {7};
        QVERIFY(downsampleTo8k(one.constData(), 1).isEmpty());

        // Up: each x gives (prev + x) / 2 and x; prev carries over between calls.
        qint16 prev = 0;
        QCOMPARE(samples(upsampleTo16k(pcm({10, -3}), prev)), QList<qint16>({5, 10, 3, -3}));
        QCOMPARE(samples(upsampleTo16k(pcm({-32768}), prev)), QList<qint16>({-16385, -32768}));
        QCOMPARE(prev, qint16(-32768));
        QCOMPARE(upsampleTo16k(QByteArray(200, 0), prev).size(), 400);
    }

    void udpAudioMessages()
    {
        QCOMPARE(encodeUdpV2(101, 0x10, 0xfffe, "ab"), QByteArray::fromHex("00650010fffe6162"));
        const QByteArray v2 = QByteArray::fromHex("00650010000100050102030405");
        QCOMPARE(audioOfV2Datagram(v2).toHex(), QByteArray("0102030405"));
        // Declared longer than present: what's there is used.
        QCOMPARE(audioOfV2Datagram(QByteArray::fromHex("0065001000010009aabb")).toHex(), QByteArray("aabb"));
        QVERIFY(audioOfV2Datagram(QByteArray::fromHex("00010010000100050102030405")).isEmpty());
        QVERIFY(audioOfV2Datagram(QByteArray::fromHex("00650010000100")).isEmpty());
        QCOMPARE(audioOfV3Message(QByteArray::fromHex("00650002ccdd")).toHex(), QByteArray("ccdd"));
        QVERIFY(audioOfV3Message(QByteArray::fromHex("0066")).isEmpty());
        QCOMPARE(audioPayload("xyz"), QByteArray::fromHex("0003") + "xyz");
    }
};

QTEST_GUILESS_MAIN(TestSvxWire)
#include "tst_svxwire.moc"
