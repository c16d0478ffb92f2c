// NXDN reflector datagrams and the SACCH/FACCH parts of the 33-byte payload.
#include "nxdn/NxdnFrame.h"

#include <QTest>

using namespace zl::nxdn;

namespace {

// Remainder of the message, preceded by six register bits of 1 (the initial 0x3F), divided by
// x^6 + x^5 + x^2 + x + 1 (0x67 with the top term): long division written out bit by bit.
quint8 crc6ByDivision(const QByteArray& data, int bitCount)
{
    QList<int> bits;
    for (int i = 0; i < bitCount; ++i)
        bits.append((quint8(data.at(i / 8)) >> (7 - i % 8)) & 1);
    for (int i = 0; i < 6; ++i)
        bits.append(0);
    // The initial register value 0x3F adds 0x3F * x^bitCount: the first six positions.
    for (int i = 0; i < 6; ++i)
        bits[i] ^= 1;
    const int poly[7] = {1, 1, 0, 0, 1, 1, 1};
    for (int i = 0; i + 6 < bits.size(); ++i) {
        if (bits[i]) {
            for (int j = 0; j < 7; ++j)
                bits[i + j] ^= poly[j];
        }
    }
    quint8 rem = 0;
    for (qsizetype i = bits.size() - 6; i < bits.size(); ++i)
        rem = quint8((rem << 1) | bits[i]);
    return rem;
}

bool bitAt(const QByteArray& d, int bit)
{
    return (quint8(d.at(bit / 8)) >> (7 - bit % 8)) & 1;
}

} // namespace

class TestNxdnFrame : public QObject {
    Q_OBJECT

private slots:
    void datagramLayout()
    {
        const QByteArray d = buildNxdnd(0x1234, 0xFDE8, flags::kHeader | flags::kVoice, QByteArray(40, '\x07'));
        QCOMPARE(d.size(), 43);
        QCOMPARE(d.left(10), QByteArray("NXDND\x12\x34\xfd\xe8\x05", 10));
        Nxdnd parsed;
        QVERIFY(parseNxdnd(d + "extra", parsed));
        QCOMPARE(parsed.source, quint16(0x1234));
        QCOMPARE(parsed.destination, quint16(65000));
        QCOMPARE(parsed.flags, quint8(5));
        QCOMPARE(parsed.payload, QByteArray(33, '\x07'));
        QVERIFY(!parseNxdnd(d.left(42), parsed));
        QVERIFY(!parseNxdnd(QByteArray("NXDNX") + d.mid(5), parsed));
        QCOMPARE(buildNxdnd(1, 2, 1, QByteArray(2, '\x09')).mid(10), QByteArray(2, '\x09') + QByteArray(31, '\0'));
    }

    void crc6AgreesWithPolynomialDivision()
    {
        QCOMPARE(crc6(QByteArray(), 0), quint8(0x3F));
        for (const QByteArray& sample :
             {QByteArray::fromHex("00000000"), QByteArray::fromHex("ffffffff"), QByteArray::fromHex("81a5c3e7"),
              QByteArray::fromHex("3c0f1234"), QByteArray::fromHex("deadbeef")}) {
            for (int bits : {1, 6, 7, 18, 26, 32})
                QCOMPARE(crc6(sample, bits), crc6ByDivision(sample, bits));
        }
    }

    void sacchCarriesStructureRanContentAndCrc()
    {
        const QByteArray s = buildSacch(2, 0x2A, 0x2ABCD);
        QCOMPARE(s.size(), 4);
        QCOMPARE(quint8(s.at(0)), quint8(0x80 | 0x2A));
        quint32 content = 0;
        for (int i = 8; i < 26; ++i)
            content = (content << 1) | (bitAt(s, i) ? 1 : 0);
        QCOMPARE(content, 0x2ABCDu);
        QCOMPARE(quint8(s.at(3)) & 0x3F, crc6(s, 26));
        // The CRC covers exactly the first 26 bits: flipping any of them changes it.
        for (int bit = 0; bit < 26; ++bit) {
            QByteArray flipped = s;
            flipped[bit / 8] = char(quint8(flipped.at(bit / 8)) ^ (0x80 >> (bit % 8)));
            QVERIFY(crc6(flipped, 26) != (quint8(s.at(3)) & 0x3F));
        }
    }

    void headerAndEndFrames()
    {
        const QByteArray lc = buildLc(1, 0x0102, 0xFDE8);
        QCOMPARE(lc, QByteArray::fromHex("0100200102fde80000"));
        const QByteArray h = buildHeaderFrame(false, 0x0102, 0xFDE8, 5);
        QCOMPARE(h.size(), 33);
        QCOMPARE(quint8(h.at(0)), kLichHeader);
        // Structure 0, RAN 5, idle content 10 00 00.
        QCOMPARE(h.mid(1, 3), QByteArray::fromHex("051000"));
        QCOMPARE(h.mid(5, 14), lc + QByteArray(5, '\0'));
        QCOMPARE(h.mid(19, 14), lc + QByteArray(5, '\0'));
        const QByteArray e = buildHeaderFrame(true, 0x0102, 0xFDE8, 5);
        QCOMPARE(quint8(e.at(5)), quint8(8));
        QCOMPARE(e.mid(6, 8), lc.mid(1, 8));
    }

    void fourVoiceFramesCarryTheWholeLc()
    {
        const QByteArray lc = buildLc(1, 4321, 65000);
        QByteArray gathered(9, '\0');
        for (unsigned counter = 0; counter < 8; ++counter) {
            QByteArray block(33, '\x5a');
            finishVoiceFrame(block, counter, 4321, 65000, 63);
            QCOMPARE(quint8(block.at(0)), kLichVoice);
            const int k = int(counter % 4);
            QCOMPARE(quint8(block.at(1)) >> 6, 3 - k);
            QCOMPARE(quint8(block.at(1)) & 0x3F, 63);
            QCOMPARE(quint8(block.at(4)) & 0x3F, crc6(block.mid(1, 4), 26));
            QCOMPARE(block.mid(5), QByteArray(28, '\x5a')); // AMBE bits untouched
            for (int i = 0; i < 18; ++i) {
                if (bitAt(block.mid(1, 4), 8 + i))
                    gathered[(18 * k + i) / 8] =
                        char(quint8(gathered.at((18 * k + i) / 8)) | (0x80 >> ((18 * k + i) % 8)));
            }
        }
        QCOMPARE(gathered, lc);
    }
};

QTEST_GUILESS_MAIN(TestNxdnFrame)
#include "tst_nxdnframe.moc"
