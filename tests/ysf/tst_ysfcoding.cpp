// The channel coding pieces of YSF: CRC-16 and the rate-1/2 convolutional code.
#include "ysf/YsfConvolution.h"
#include "ysf/YsfCrc.h"

#include <QRandomGenerator>
#include <QTest>

using namespace zl::ysf;

class TestYsfCoding : public QObject {
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

    void bitHelpersRoundTrip()
    {
        const QByteArray bytes = QByteArray::fromHex("a55a0ff0c3");
        const QList<quint8> bits = bitsOf(bytes, 40);
        QCOMPARE(bits.first(8), (QList<quint8>{1, 0, 1, 0, 0, 1, 0, 1}));
        QCOMPARE(bytesOf(bits), bytes);
        QCOMPARE(bytesOf(bitsOf(bytes, 12)), QByteArray::fromHex("a550"));
    }
};

QTEST_GUILESS_MAIN(TestYsfCoding)
#include "tst_ysfcoding.moc"
