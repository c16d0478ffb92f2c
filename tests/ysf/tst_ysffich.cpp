// The channel coding of YSF V/D mode 2 (CRC-16, the rate-1/2 convolutional code, Golay) and
// the FICH, voice field and header data built with it, checked against published values, by
// decoders written from the channel coding rules and by the properties of the codes.
#include "AmbeChips.h"
#include "ysf/YsfConvolution.h"
#include "ysf/YsfCrc.h"
#include "ysf/YsfFich.h"
#include "ysf/YsfPayload.h"
#include "ysf/YsfVoiceField.h"

#include <QRandomGenerator>
#include <QTest>

using namespace zl::ysf;

namespace {

void flipBit(QByteArray& data, int bit)
{
    data[bit / 8] = char(quint8(data.at(bit / 8)) ^ (0x80 >> (bit % 8)));
}

} // namespace

class TestYsfFich : public QObject {
    Q_OBJECT

private slots:
    void crcIsCrc16Gsm()
    {
        // CCITT polynomial, start 0, complemented: the catalogue's CRC-16/GSM, check 0xCE3C.
        QCOMPARE(ysfCrc("123456789"), quint16(0xCE3C));
        QCOMPARE(ysfCrc(QByteArrayView()), quint16(0xFFFF));
    }

    void impulseResponseIsTheGenerators()
    {
        // g1 = 1 + D^3 + D^4 and g2 = 1 + D + D^2 + D^4, read off the response to a single 1.
        const QList<quint8> out = convolutionalEncode({1, 0, 0, 0, 0, 0});
        QCOMPARE(out, (QList<quint8>{1, 1, 0, 1, 0, 1, 1, 0, 1, 1, 0, 0}));
        // Linear: the response to two ones is the sum of the shifted responses.
        const QList<quint8> two = convolutionalEncode({1, 0, 1, 0, 0, 0, 0});
        const QList<quint8> a = convolutionalEncode({1, 0, 0, 0, 0, 0, 0});
        const QList<quint8> b = convolutionalEncode({0, 0, 1, 0, 0, 0, 0});
        for (qsizetype i = 0; i < two.size(); ++i)
            QCOMPARE(two[i], quint8(a[i] ^ b[i]));
    }

    void viterbiCorrectsScatteredErrors()
    {
        QRandomGenerator rng(17);
        for (int round = 0; round < 200; ++round) {
            QList<quint8> data(96);
            for (quint8& bit : data)
                bit = quint8(rng.bounded(2));
            QList<quint8> withTail = data + QList<quint8>{0, 0, 0, 0};
            QList<quint8> coded = convolutionalEncode(withTail);
            QCOMPARE(viterbiDecode(coded).first(96), data);
            // Three errors far apart are within the code's reach (free distance 7).
            for (int e = 0; e < 3; ++e)
                coded[e * 60 + rng.bounded(20)] ^= 1;
            QCOMPARE(viterbiDecode(coded).first(96), data);
        }
    }

    void golay24CorrectsThreeAndDetectsFour()
    {
        QRandomGenerator rng(3);
        for (int round = 0; round < 6; ++round) {
            const uint32_t data = rng.bounded(4096);
            const uint32_t word = zl::hw::golay24Encode(data);
            uint32_t out = 0;
            for (int i = 0; i < 24; ++i) {
                for (int j = i + 1; j < 24; ++j) {
                    const uint32_t two = word ^ (1u << i) ^ (1u << j);
                    QVERIFY(zl::hw::golay24Decode(two, out));
                    QCOMPARE(out, data);
                    for (int k = j + 1; k < 24; ++k) {
                        QVERIFY(zl::hw::golay24Decode(two ^ (1u << k), out));
                        QCOMPARE(out, data);
                        for (int l = k + 1; l < 24; ++l)
                            QVERIFY(!zl::hw::golay24Decode(two ^ (1u << k) ^ (1u << l), out));
                    }
                }
            }
        }
    }

    void fichFieldsSitWhereTheyBelong_data()
    {
        // Each field from its own bits, the spare bits clear: FI 1, FN 5, FT 6, DT 2, MR 1, SQ 0x55.
        QTest::addColumn<QByteArray>("in");
        QTest::addColumn<QByteArray>("out");
        QTest::newRow("voice frame") << QByteArray("402e0a55") << QByteArray("402e0a55");
        QTest::newRow("all ones") << QByteArray("ffffffff") << QByteArray("ffff7f7f");
        QTest::newRow("alternating") << QByteArray("aaaaaaaa") << QByteArray("aaaa2a2a");
        QTest::newRow("alternating too") << QByteArray("55555555") << QByteArray("55555555");
    }

    void fichFieldsSitWhereTheyBelong()
    {
        QFETCH(QByteArray, in);
        QFETCH(QByteArray, out);
        const Fich f = Fich::fromBytes(QByteArray::fromHex(in));
        QCOMPARE(f.toBytes().toHex(), out);
        QCOMPARE(decodeFich(encodeFich(f))->toBytes(), f.toBytes());
    }

    void fichSurvivesScatteredErrorsAndRefusesGarbage()
    {
        const QByteArray clean = encodeFich(Fich::fromBytes(QByteArray::fromHex("00060a07"))); // header, SQ 7
        for (int a = 0; a < 200; a += 7) {
            QByteArray noisy = clean;
            flipBit(noisy, a);
            flipBit(noisy, (a + 97) % 200);
            const std::optional<Fich> decoded = decodeFich(noisy);
            QVERIFY2(decoded, qPrintable(QString::number(a)));
            QCOMPARE(decoded->sq, quint8(7));
        }
        QRandomGenerator rng(9);
        int accepted = 0;
        for (int round = 0; round < 200; ++round) {
            QByteArray junk(25, '\0');
            for (char& c : junk)
                c = char(rng.bounded(256));
            accepted += decodeFich(junk).has_value();
        }
        // Golay and CRC leave random data very little chance.
        QVERIFY(accepted < 3);
        QVERIFY(!decodeFich(clean.left(24)));
    }

    void interleaverCoversEveryPairOnce()
    {
        for (int rows : {5, 9}) {
            QList<int> table = interleaveTable(rows);
            QCOMPARE(table.size(), 20 * rows);
            QCOMPARE(table.mid(0, 2), (QList<int>{0, 40}));
            QCOMPARE(table.at(rows), 2);
            std::sort(table.begin(), table.end());
            for (int i = 0; i < table.size(); ++i)
                QCOMPARE(table[i], 2 * i);
        }
    }

    void voiceFieldRepeatsAreThreeCopiesAfterWhitening()
    {
        // Undo interleaving and whitening by the rules, then the repeated bits must agree.
        QRandomGenerator rng(13);
        const QByteArray field = chipFrameToVoiceField(AmbeChips::randomFrame(rng));
        const QList<quint8> in = bitsOf(field, 104);
        const QList<quint8> white = bitsOf(whitening(13), 104);
        QList<quint8> bits(104);
        int i = 0;
        for (int phase = 0; phase < 4; ++phase) {
            for (int pos = phase; pos < 104; pos += 4, ++i)
                bits[i] = in[pos] ^ white[i];
        }
        for (int t = 0; t < 27; ++t) {
            QCOMPARE(bits[3 * t], bits[3 * t + 1]);
            QCOMPARE(bits[3 * t + 2], bits[3 * t + 1]);
        }
        QCOMPARE(bits[103], quint8(0));
        // The whitening is the PN9 sequence of x^9 + x^5 + 1.
        const QList<quint8> pn = bitsOf(whitening(20), 160);
        for (int k = 9; k < 160; ++k)
            QCOMPARE(pn[k], quint8(pn[k - 5] ^ pn[k - 9]));
    }

    void headerCarriesCallsignsRecoverably()
    {
        const QByteArray p = buildPayload(0, 0, {"XX0ABC", "ALL", 12});
        QCOMPARE(p.size(), 120);
        QCOMPARE(p.left(5), QByteArray::fromHex("d471c9634d"));
        const std::optional<Fich> fich = decodeFich(p.mid(5, 25));
        QVERIFY(fich);
        QCOMPARE(fich->fi, quint8(0));
        QCOMPARE(fich->sq, quint8(12));
        QCOMPARE(fich->dt, quint8(2)); // V/D mode 2, frames 0 to 6
        QCOMPARE(fich->ft, quint8(6));

        // Gather CSD1 and CSD2 from their runs and decode them by the rules.
        const auto decodeCsd = [&](qsizetype first) {
            QByteArray coded;
            for (int run = 0; run < 5; ++run)
                coded += p.mid(first + 18 * run, 9);
            const QList<quint8> bits = bitsOf(coded, 360);
            QList<quint8> pairs;
            for (int t : interleaveTable(9))
                pairs << bits[t] << bits[t + 1];
            QByteArray data = bytesOf(viterbiDecode(pairs).first(176));
            const quint16 crc = ysfCrc(data.first(20));
            if (quint8(data.at(20)) != (crc >> 8) || quint8(data.at(21)) != (crc & 0xFF))
                return QByteArray("bad crc");
            const QByteArray w = whitening(20);
            for (int i = 0; i < 20; ++i)
                data[i] = char(quint8(data.at(i)) ^ quint8(w.at(i)));
            return data.first(20);
        };
        QCOMPARE(decodeCsd(30), QByteArray("ALL       XX0ABC    "));
        QCOMPARE(decodeCsd(39), QByteArray("XX0ABC    XX0ABC    "));
    }

    void voiceFramesPlaceFiveFields()
    {
        QList<QByteArray> block;
        for (int i = 0; i < 5; ++i)
            block.append(QByteArray(13, char('a' + i)));
        const QByteArray p = buildPayload(1, 3, {"XX0ABC", "ALL", 0}, block);
        for (int i = 0; i < 5; ++i) {
            QCOMPARE(p.mid(35 + 18 * i, 13), block.at(i));
            QCOMPARE(p.mid(30 + 18 * i, 5), QByteArray(5, '\0'));
        }
        QCOMPARE(decodeFich(p.mid(5, 25))->fn, quint8(3));
        // A terminator has callsign data, not voice.
        QVERIFY(buildPayload(2, 0, {"XX0ABC", "ALL", 0}).mid(30) != QByteArray(90, '\0'));
    }
};

QTEST_GUILESS_MAIN(TestYsfFich)
#include "tst_ysffich.moc"
