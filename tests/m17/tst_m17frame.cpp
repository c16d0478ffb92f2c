// Frame, address and CRC coding of the M17 network against the published address encoding and
// the catalogue entry CRC-16/M17 (check value 0x772B for "123456789").
#include "m17/M17Callsign.h"
#include "m17/M17Crc.h"
#include "m17/M17StreamFrame.h"

#include <QTest>

using namespace zl::m17;

class TestM17Frame : public QObject {
    Q_OBJECT

private slots:
    void crcPublishedVectors()
    {
        QCOMPARE(m17Crc(QByteArrayView()), quint16(0xFFFF));
        QCOMPARE(m17Crc("A"), quint16(0x206E));
        QCOMPARE(m17Crc("123456789"), quint16(0x772B));
        QByteArray all(256, '\0');
        for (int i = 0; i < 256; ++i)
            all[i] = char(i);
        QCOMPARE(m17Crc(all), quint16(0x1C31));
    }

    void addressesPublishedByM17()
    {
        // "AB1CD" is D*40^4 + C*40^3 + '1'*40^2 + B*40 + A = 10476881 = 0x9FDD51.
        QCOMPARE(encodeCallsign("AB1CD"), quint64(0x9FDD51));
        QCOMPARE(decodeCallsign(0x9FDD51), QStringLiteral("AB1CD"));
        QCOMPARE(encodeCallsign("A"), quint64(1));
        QCOMPARE(encodeCallsign("........."), quint64(0xEE6B27FFFFFF));
        // Trailing blanks add nothing.
        QCOMPARE(encodeCallsign("ABC   "), encodeCallsign("ABC"));
        QCOMPARE(addressBytes(0x9FDD51), QByteArray::fromHex("0000009fdd51"));
        QCOMPARE(addressAt(QByteArray::fromHex("aa0000009fdd51"), 1), quint64(0x9FDD51));
        QCOMPARE(addressAt(QByteArray::fromHex("0000009fdd"), 0), quint64(0));
    }

    void specialAddresses()
    {
        QCOMPARE(encodeCallsign("ALL      "), quint64(0xFFFFFFFFFFFF));
        QCOMPARE(decodeCallsign(0xFFFFFFFFFFFF), QStringLiteral("ALL      "));
        QCOMPARE(encodeCallsign("#"), quint64(0xEE6B28000000));
        QCOMPARE(decodeCallsign(0xEE6B28000000), QStringLiteral("#"));
        QCOMPARE(decodeCallsign(encodeCallsign("#ECHO")), QStringLiteral("#ECHO"));
        QVERIFY(decodeCallsign(0xF46108FFFFFF).startsWith(QLatin1Char('#')));
        QCOMPARE(decodeCallsign(0xF46109000000), QStringLiteral("Invalid"));
        QCOMPARE(decodeCallsign(0), QString());
        // Only nine characters count; unknown characters are blanks.
        QCOMPARE(encodeCallsign("XX0ABCDEFGH"), encodeCallsign("XX0ABCDEF"));
        QCOMPARE(encodeCallsign("a*B"), encodeCallsign("  B"));
        QCOMPARE(decodeCallsign(encodeCallsign("XX0ABC-/.")), QStringLiteral("XX0ABC-/."));
    }

    void streamFrameLayout()
    {
        const QByteArray c2a = QByteArray::fromHex("0102030405060708");
        const QByteArray c2b = QByteArray::fromHex("1112131415161718");
        const QByteArray f = buildStreamFrame("AB1CD", "ALL", 0xBEEF, 0x1234, true, c2a, c2b);
        QCOMPARE(f.size(), 54);
        QByteArray expected = QByteArray("M17 ") + QByteArray::fromHex("beef") + QByteArray::fromHex("ffffffffffff") +
                              QByteArray::fromHex("0000009fdd51") + QByteArray::fromHex("0005") + QByteArray(14, '\0') +
                              QByteArray::fromHex("9234") + c2a + c2b;
        const quint16 crc = m17Crc(expected);
        expected.append(char(crc >> 8)).append(char(crc & 0xFF));
        QCOMPARE(f.toHex(), expected.toHex());
        QVERIFY(isStreamFrame(f));
        QCOMPARE(streamIdOf(f), quint16(0xBEEF));
        QCOMPARE(sourceOf(f), QStringLiteral("AB1CD"));
        QVERIFY(isEndOfStream(f));

        // Frame numbers keep 15 bits; "ALL " is the broadcast too; short Codec2 fields stay zero-padded.
        const QByteArray g = buildStreamFrame("AB1CD", "ALL ", 1, 0xFFFF, false, QByteArray("\x01", 1), {});
        QCOMPARE(g.mid(6, 6), QByteArray::fromHex("ffffffffffff"));
        QCOMPARE(g.mid(34, 2), QByteArray::fromHex("7fff"));
        QCOMPARE(g.mid(36, 16), QByteArray::fromHex("01000000000000000000000000000000"));
        QVERIFY(!isEndOfStream(g));
    }

    void invalidFramesAreNotBuilt()
    {
        const QByteArray c2(8, '\0');
        QVERIFY(buildStreamFrame("", "ALL", 1, 0, false, c2, c2).isEmpty());
        QVERIFY(buildStreamFrame("XX0ABCDEFG", "ALL", 1, 0, false, c2, c2).isEmpty());
        QVERIFY(buildStreamFrame("XX0ABC", "", 1, 0, false, c2, c2).isEmpty());
        QVERIFY(buildStreamFrame("XX0ABC", "M17-XYZ ABC", 1, 0, false, c2, c2).isEmpty());
        QVERIFY(!buildStreamFrame("XX0ABC", "M17-XYZ C", 1, 0, false, c2, c2).isEmpty());
        QVERIFY(!isStreamFrame(QByteArray("M17 ") + QByteArray(49, '\0')));
        QVERIFY(!isStreamFrame(QByteArray("M18 ") + QByteArray(50, '\0')));
    }
};

QTEST_GUILESS_MAIN(TestM17Frame)
#include "tst_m17frame.moc"
