// G.711 mu-law against the published table, and the IAX2 frame layout against hand-made bytes.
#include "iax/IaxFrame.h"
#include "iax/MuLaw.h"

#include <QTest>

using namespace zl::iax;

class TestIaxCodec : public QObject {
    Q_OBJECT

private slots:
    void muLawPublishedValues()
    {
        // Decoder values from the G.711 table.
        QCOMPARE(muLawToLinear(0x00), qint16(-32124));
        QCOMPARE(muLawToLinear(0x80), qint16(32124));
        QCOMPARE(muLawToLinear(0xFF), qint16(0));
        QCOMPARE(muLawToLinear(0x7F), qint16(0));
        QCOMPARE(muLawToLinear(0xF0), qint16(120));
        QCOMPARE(muLawToLinear(0x70), qint16(-120));
        QCOMPARE(muLawToLinear(0xEF), qint16(132));
        // Encoder: zero, full scale clips, segment edges.
        QCOMPARE(linearToMuLaw(0), quint8(0xFF));
        QCOMPARE(linearToMuLaw(32767), quint8(0x80));
        QCOMPARE(linearToMuLaw(-32768), quint8(0x00));
        QCOMPARE(linearToMuLaw(120), quint8(0xF0));
        QCOMPARE(linearToMuLaw(-120), quint8(0x70));
        QCOMPARE(encodeMuLaw(QByteArray("\x00\x00\xff\x7f", 4)), QByteArray("\xff\x80", 2));
        QCOMPARE(decodeMuLaw(QByteArray("\x80", 1)), QByteArray("\x7c\x7d", 2)); // 32124 little-endian
        QCOMPARE(encodeMuLaw(QByteArray(3, '\0')).size(), 1);                    // an odd byte is no sample
    }

    void subclassCoding()
    {
        QCOMPARE(decodeSubclass(0x84), quint32(16));
        QCOMPARE(decodeSubclass(0x28), quint32(40));
        QCOMPARE(encodeSubclass(40), quint8(40));
        QCOMPARE(encodeSubclass(128), quint8(0x87));
        QCOMPARE(encodeSubclass(1u << 16), quint8(0x90));
    }

    void fullFrameLayout()
    {
        FullFrame f;
        f.srcCall = 0x0102;
        f.dstCall = 0x0304;
        f.timestamp = 0x05060708;
        f.oseq = 9;
        f.iseq = 10;
        f.type = 6;
        f.subclass = 1;
        f.payload = "ab";
        const QByteArray wire = fullFrame(f);
        QCOMPARE(wire, QByteArray::fromHex("8102030405060708090a06016162"));
        const auto back = parseFullFrame(QByteArray::fromHex("8182830405060708090a0684"));
        QVERIFY(back);
        QCOMPARE(back->srcCall, quint16(0x0182));
        QCOMPARE(back->dstCall, quint16(0x0304));
        QCOMPARE(back->timestamp, quint32(0x05060708));
        QCOMPARE(back->oseq, quint8(9));
        QCOMPARE(back->iseq, quint8(10));
        QCOMPARE(back->type, quint8(6));
        QVERIFY(back->retransmitted);
        QCOMPARE(back->subclass, quint32(16));
        QVERIFY(back->payload.isEmpty());
        QVERIFY(!parseFullFrame(QByteArray::fromHex("8182830405060708090a06")));   // 11 bytes
        QVERIFY(!parseFullFrame(QByteArray::fromHex("0182830405060708090a0601"))); // top bit clear
        QCOMPARE(miniFrame(0x8005, 0x1234, "x"), QByteArray::fromHex("0005123478"));
    }

    void informationElements()
    {
        const auto ies = parseIes(QByteArray::fromHex("1603616263") + QByteArray::fromHex("0f02") + "xy");
        QCOMPARE(ies.value(22), QByteArray("abc"));
        QCOMPARE(ies.value(15), QByteArray("xy"));
        // A truncated element ends the list with what came before.
        const auto cut = parseIes(QByteArray::fromHex("160161") + QByteArray::fromHex("0f09") + "xy");
        QCOMPARE(cut.size(), 1);
        QCOMPARE(cut.value(22), QByteArray("a"));
        QVERIFY(parseIes(QByteArray::fromHex("16")).isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestIaxCodec)
#include "tst_iaxcodec.moc"
