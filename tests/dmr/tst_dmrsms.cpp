#include "FastClock.h"
#include "HomebrewMaster.h"
#include "VoiceTestKit.h"
#include "dmr/BPTC19696.h"
#include "dmr/DmrPeerClient.h"
#include "dmr/DmrdFrame.h"
#include "dmr/SlotType.h"
#include "dmr/SmsText.h"
#include "dmr/Sync.h"
#include "dmr/Trellis34.h"

#include <QSignalSpy>
#include <QTest>

using namespace zl::dmr;

namespace {

constexpr quint32 kPeerId = 240000101;

const uint8_t* bytes(const QByteArray& a)
{
    return reinterpret_cast<const uint8_t*>(a.constData());
}

// Rate 3/4 coding written from the standard's tables: the state machine gives each tribit a
// constellation point, each point two dibits, and four passes send two dibits of every eight.
QByteArray trellisBurst(const QByteArray& block18, const QList<int>& flipDibits = {})
{
    static const int kPoint[8][8] = {{0, 8, 4, 12, 2, 10, 6, 14}, {4, 12, 2, 10, 6, 14, 0, 8},
                                     {1, 9, 5, 13, 3, 11, 7, 15}, {5, 13, 3, 11, 7, 15, 1, 9},
                                     {3, 11, 7, 15, 1, 9, 5, 13}, {7, 15, 1, 9, 5, 13, 3, 11},
                                     {2, 10, 6, 14, 0, 8, 4, 12}, {6, 14, 0, 8, 4, 12, 2, 10}};
    // The two dibits of each point as sent: +1 is 00, +3 01, -1 10, -3 11.
    static const int kBits[16][2] = {{0, 2}, {2, 2}, {1, 3}, {3, 3}, {3, 2}, {1, 2}, {2, 3}, {0, 3},
                                     {3, 1}, {1, 1}, {2, 0}, {0, 0}, {0, 1}, {2, 1}, {1, 0}, {3, 0}};
    QList<int> dibits;
    for (int i = 0, state = 0; i < 49; ++i) {
        int t = 0;
        for (int b = 0; i < 48 && b < 3; ++b)
            t = t << 1 | ((uint8_t(block18[(3 * i + b) / 8]) >> (7 - (3 * i + b) % 8)) & 1);
        dibits << kBits[kPoint[state][t]][0] << kBits[kPoint[state][t]][1];
        state = t;
    }
    for (int k : flipDibits)
        dibits[k] ^= 1;
    QByteArray burst(33, '\0');
    for (int k = 0; k < 98; ++k) {
        const int air = QList<int>{0, 26, 50, 74}[(k % 8) / 2] + 2 * (k / 8) + k % 2;
        for (int b = 0; b < 2; ++b) {
            const int bit = 2 * air + b < 98 ? 2 * air + b : 2 * air + b + 68;
            burst[bit / 8] = char(burst[bit / 8] | (((dibits[k] >> (1 - b)) & 1) << (7 - bit % 8)));
        }
    }
    return burst;
}

QByteArray bptcBurst(const QByteArray& block12, uint8_t dataType)
{
    QByteArray burst(33, '\0');
    auto* b = reinterpret_cast<uint8_t*>(burst.data());
    BPTC19696().encode(bytes(block12), b);
    slotTypeEncode(1, dataType, b);
    writeSync(kBsDataSync, b);
    return burst;
}

QByteArray bptcBlock(const QByteArray& dmrd)
{
    QByteArray block(12, '\0');
    BPTC19696().decode(bytes(dmrdBurst(dmrd)), reinterpret_cast<uint8_t*>(block.data()));
    return block;
}

// CRC-32 of the data blocks, bit by bit from its definition.
quint32 referenceCrc32(const QByteArray& data)
{
    quint32 crc = 0;
    for (qsizetype i = 0; i < data.size(); ++i) {
        crc ^= quint32(uint8_t(data[i ^ 1])) << 24;
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc << 1) ^ ((crc >> 31) ? 0x04C11DB7U : 0);
    }
    return crc;
}

quint16 referenceCrc16(const QByteArray& data)
{
    quint16 crc = 0;
    for (char c : data) {
        crc ^= quint16(uint8_t(c) << 8);
        for (int bit = 0; bit < 8; ++bit)
            crc = quint16((crc << 1) ^ ((crc & 0x8000) ? 0x1021 : 0));
    }
    return quint16(~crc);
}

// Hex with ".." for bytes that differ from call to call; everything behind the pattern is zero.
bool matches(const QByteArray& actual, const QByteArray& pattern)
{
    for (qsizetype i = 0; i < actual.size(); ++i) {
        const QByteArray hex = pattern.mid(2 * i, 2);
        if (hex != ".." && actual[i] != (hex.isEmpty() ? '\0' : QByteArray::fromHex(hex)[0]))
            return false;
    }
    return true;
}

// Ones' complement sum; an IPv4 header or a UDP datagram with its pseudo header sums to 0xFFFF.
quint16 onesSum(const QByteArray& data)
{
    quint32 sum = 0;
    for (qsizetype i = 0; i + 1 < data.size(); i += 2)
        sum += quint32(uint8_t(data[i])) << 8 | uint8_t(data[i + 1]);
    while (sum >> 16)
        sum = (sum & 0xFFFF) + (sum >> 16);
    return quint16(sum);
}

struct Rig {
    Rig()
    {
        Q_ASSERT(master.listen());
        master.addPeer(kPeerId, "pw");
        client.setProfile(kit::profile("Sms", master.port(), kPeerId, "pw"));
        client.start();
    }
    bool loggedIn()
    {
        return QTest::qWaitFor([&] { return client.state() == DmrPeerClient::Running; }, 5000);
    }
    HomebrewMaster master;
    DmrPeerClient client;
};

} // namespace

class TestDmrSms : public QObject {
    Q_OBJECT

private slots:
    // One bit of a dibit flipped turns +1 into +3 or -1 into -3, the commonest symbol error: the
    // point breaks the state machine where it stands, and trying all 16 values there mends it.
    void trellisRepairs_data()
    {
        QTest::addColumn<QList<int>>("flipped");
        QTest::addColumn<bool>("recovered");
        QTest::newRow("clean") << QList<int>{} << true;
        QTest::newRow("first point") << QList<int>{0} << true;
        QTest::newRow("middle") << QList<int>{41} << true;
        QTest::newRow("three, in three rounds") << QList<int>{7, 38, 71} << true;
        QTest::newRow("a run of points") << QList<int>{20, 22, 24, 26, 28, 30, 32} << false;
    }
    void trellisRepairs()
    {
        QFETCH(QList<int>, flipped);
        QFETCH(bool, recovered);
        const QByteArray data = QByteArray::fromHex("00FF13579BDF2468ACE0C3A55A3CF00F1E2D");
        QByteArray out(18, '\0');
        const bool ok = trellis34Decode(bytes(trellisBurst(data, flipped)), reinterpret_cast<uint8_t*>(out.data()));
        QCOMPARE(out == data, recovered);
        QVERIFY(ok || !recovered);
    }

    void recognition_data()
    {
        QTest::addColumn<QByteArray>("payload");
        QTest::addColumn<QStringList>("expected"); // format, text, family, confidence
        QTest::newRow("empty") << QByteArray() << QStringList{"empty", "", "unknown", "0"};
        QTest::newRow("two bytes, no run") << QByteArray("6869") << QStringList{"bin", "", "unknown", "0"};
        QTest::newRow("one byte") << QByteArray("41") << QStringList{"bin", "", "unknown", "0"};
        QTest::newRow("anytone without ip")
            << QByteArray("0200480069") << QStringList{"anytone_ucs2_be", "Hi", "anytone_tyt", "95"};
        QTest::newRow("etsi big-endian") << QByteArray("04004800690009")
                                         << QStringList{"etsi_ucs2_be", "Hi ", "etsi", "90"};
        QTest::newRow("dd 4, neither order")
            << QByteArray("04010203044142434445") << QStringList{"ascii_run", "ABCDE", "unknown", "50"};
        QTest::newRow("8 bit without text") << QByteArray("080102") << QStringList{"etsi_8bit_bin", "", "etsi", "85"};
        QTest::newRow("short data, hytera")
            << QByteArray("0A4C52525020666978200D0A00") << QStringList{"short_data_ascii", "LRRP fix", "hytera", "85"};
        QTest::newRow("ucs-2 be") << QByteArray("00480065006C006C006F")
                                  << QStringList{"ucs2_be", "Hello", "china_family", "70"};
        QTest::newRow("ucs-2 le") << QByteArray("480065006C00") << QStringList{"ucs2_le", "Hel", "etsi", "70"};
        QTest::newRow("ip without marker") << QByteArray("4500002A0001000040110000000000000000000000000000000000000000"
                                                         "0000004D4F544F5452424F206869")
                                           << QStringList{"ascii_run", "MOTOTRBO hi", "motorola", "50"};
    }
    void recognition()
    {
        QFETCH(QByteArray, payload);
        QFETCH(QStringList, expected);
        const QByteArray raw = QByteArray::fromHex(payload);
        const DecodedText d = decodeSmsText(bytes(raw), int(raw.size()));
        QCOMPARE((QStringList{d.format, d.text, d.family, QString::number(d.confidence)}), expected);
        QCOMPARE(int(d.dd), raw.isEmpty() ? 0 : int(uint8_t(raw[0])));
    }

    // Data calls as radios send them, laid out by hand: header, then blocks of 12 (rate 1/2) or
    // 18 bytes (rate 3/4); confirmed blocks lead with serial number and CRC-9 (left 0: unchecked).
    void receivedCalls_data()
    {
        QTest::addColumn<QByteArray>("header");
        QTest::addColumn<QByteArray>("blocks");
        QTest::addColumn<int>("dataType");
        QTest::addColumn<uint>("dst");
        QTest::addColumn<QString>("format");
        QTest::addColumn<QString>("text");
        QTest::newRow("etsi ucs-2 le") << QByteArray("0209249F02249F0182001F42")
                                       << QByteArray("04480065006C006C006F00000000000000000000D50F841E") << 7
                                       << 2400002U << "etsi_ucs2_le"
                                       << "Hello";
        QTest::newRow("etsi 8 bit, group")
            << QByteArray("820B00005B249F0182006709") << QByteArray("084869207468657265000000000000000000000013086337")
            << 7 << 91U << "etsi_8bit_ascii"
            << "Hi there";
        QTest::newRow("short data") << QByteArray("0D02249F02249F01000030B2")
                                    << QByteArray("0A4351204351206465205858304142430000000000000000") << 7 << 2400002U
                                    << "short_data_ascii"
                                    << "CQ CQ de XX0ABC";
        QTest::newRow("anytone ip/udp") << QByteArray("0242249F02249F018400EE86")
                                        << QByteArray("4500002A00010000401124770C249F010C249F020FA70FA7001621"
                                                      "95000CA08200040D000A00480069000000535421EB")
                                        << 7 << 2400002U << "anytone_ip_ucs2_be"
                                        << "Hi";
        QTest::newRow("rate 3/4, pad 17") << QByteArray("1201249F02249F018200A22B")
                                          << QByteArray("045400520045004C004C004900530000000000000000000000000000"
                                                        "000000001F75762A")
                                          << 8 << 2400002U << "etsi_ucs2_le"
                                          << "TRELLIS";
        QTest::newRow("confirmed") << QByteArray("4306249F02249F0182009A49")
                                   << QByteArray("000008434F4E4649524D4544020000000000000047603E99") << 7 << 2400002U
                                   << "etsi_8bit_ascii"
                                   << "CONFIRMED";
    }
    void receivedCalls()
    {
        QFETCH(QByteArray, header);
        QFETCH(QByteArray, blocks);
        QFETCH(int, dataType);
        QFETCH(uint, dst);
        QFETCH(QString, format);
        QFETCH(QString, text);
        Rig rig;
        QVERIFY(rig.loggedIn());
        QSignalSpy sms(&rig.client, &DmrPeerClient::smsReceived);
        const bool group = header.startsWith('8');
        const auto flags = [&](int type) { return uint8_t(0xA0 | (group ? 0 : 0x40) | type); };
        QList<QByteArray> bursts{bptcBurst(QByteArray::fromHex(header), 6)};
        const int size = dataType == 8 ? 18 : 12;
        const QByteArray data = QByteArray::fromHex(blocks);
        for (qsizetype at = 0; at < data.size(); at += size)
            bursts << (dataType == 8 ? trellisBurst(data.mid(at, size)) : bptcBurst(data.mid(at, size), 7));
        QTest::ignoreMessage(QtInfoMsg, QRegularExpression("data call complete src=2400001 dst=" +
                                                           QString::number(dst) + " .* kind=" + format));
        for (int i = 0; i < bursts.size(); ++i)
            rig.master.sendToPeer(kPeerId, kit::dmrd(quint8(i), 2400001, dst, flags(i ? dataType : 6), 77, bursts[i]));
        QTRY_COMPARE(sms.size(), 1);
        QCOMPARE(sms.at(0), (QVariantList{2400001U, dst, !group, text, format}));
    }

    // What a master receives, read back bit by bit: four preambles counting down the bursts to
    // come, the header, the data with its CRC-32, every 60 ms, all with the CSBK and header CRCs.
    void sentCallsOnTheWire_data()
    {
        QTest::addColumn<QString>("format");
        QTest::addColumn<QString>("text");
        QTest::addColumn<uint>("dst");
        QTest::addColumn<int>("slot");
        QTest::addColumn<QByteArray>("csbk");
        QTest::addColumn<QByteArray>("header");
        QTest::addColumn<QByteArray>("data");
        QTest::newRow("etsi, 13 bytes in 2 blocks")
            << "etsi"
            << "Hello!" << 2400002U << 2 << QByteArray("BD008006249F02249F01182A")
            << QByteArray("0207249F02249F0182006C35") << QByteArray("04480065006C006C006F002100");
        QTest::newRow("short data to a group, 1 block")
            << "short_data"
            << "Hi ü\tx" << 91U << 1 << QByteArray("BD00C00500005B249F01C0EE") << QByteArray("820100005B249F018100DDC2")
            << QByteArray("0A4869203F2078");
        QTest::newRow("anytone ip/udp") << "anytone"
                                        << "Hi" << 2400002U << 2 << QByteArray("BD008008249F02249F012AA2")
                                        << QByteArray("0242249F02249F018400EE86")
                                        << QByteArray("4500002A....00004011....0C249F010C249F020FA70FA70016....000C"
                                                      "A0..00040D000A0048006900");
    }
    void sentCallsOnTheWire()
    {
        QFETCH(QString, format);
        QFETCH(QString, text);
        QFETCH(uint, dst);
        QFETCH(int, slot);
        QFETCH(QByteArray, csbk);
        QFETCH(QByteArray, header);
        QFETCH(QByteArray, data);
        Rig rig;
        QVERIFY(rig.loggedIn());
        QSignalSpy sent(&rig.client, &DmrPeerClient::smsSent);
        const bool privateCall = dst > 999999;
        QVERIFY(rig.client.sendSms(2400001, dst, quint8(slot), privateCall, text, format));
        QTRY_COMPARE(sent.size(), 1);
        QCOMPARE(sent.at(0), (QVariantList{dst, text}));
        const QList<HomebrewMaster::Datagram> frames = rig.master.receivedWith("DMRD");
        const int blocks = QByteArray::fromHex(header).at(8) & 0x7F;
        QCOMPARE(frames.size(), 5 + blocks);
        QByteArray buffer;
        for (int i = 0; i < frames.size(); ++i) {
            const QByteArray& frame = frames[i].data;
            const DmrdHeader h = *parseDmrdHeader(frame);
            const uint8_t type = i < 4 ? 3 : i == 4 ? 6 : 7;
            QCOMPARE(frame.size(), 55);
            QCOMPARE(int(h.seq), i);
            QCOMPARE(h.streamId, parseDmrdHeader(frames[0].data)->streamId);
            QCOMPARE(int(h.flags), (slot == 2 ? 0x80 : 0) | (privateCall ? 0x40 : 0) | 0x20 | type);
            QCOMPARE(slotTypeDecode(bytes(dmrdBurst(frame))).dataType, type);
            QCOMPARE(readSync(bytes(dmrdBurst(frame))), kBsDataSync);
            // Arrival times carry the master's own reading delays: each burst at least 60 ms after
            // the one before, give or take 30 ms of that.
            QVERIFY2(frames[i].ms - frames[0].ms >= i * 60 - 30, qPrintable(QString::number(i)));
            const QByteArray block = bptcBlock(frame);
            if (i < 5) {
                const quint16 crc = referenceCrc16(block.left(10)) ^ (i < 4 ? 0xA5A5 : 0xCCCC);
                QCOMPARE(quint16(uint8_t(block[10]) << 8 | uint8_t(block[11])), crc);
            }
            if (i < 4)
                QCOMPARE(int(block[3]), blocks + 4 - i);
            if (i == 0 || i == 4)
                QCOMPARE(block.toHex().toUpper(), i ? header : csbk);
            if (i >= 5)
                buffer += block;
        }
        QVERIFY((frames.constLast().ms - frames.constFirst().ms) / (frames.size() - 1) < 120);
        const QByteArray crc = buffer.right(4);
        buffer.chop(4);
        QCOMPARE(qFromLittleEndian<quint32>(crc.constData()), referenceCrc32(buffer));
        QVERIFY2(matches(buffer, data), buffer.toHex().constData());
        if (format == "anytone") {
            QCOMPARE(onesSum(buffer.left(20)), quint16(0xFFFF));
            const QByteArray pseudo = buffer.mid(12, 8) + QByteArray::fromHex("0011") + buffer.mid(24, 2);
            QCOMPARE(onesSum(pseudo + buffer.mid(20, 22)), quint16(0xFFFF));
        }
    }
};

QTEST_GUILESS_MAIN(TestDmrSms)
#include "tst_dmrsms.moc"
