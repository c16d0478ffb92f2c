// EchoLink datagrams and the directory's list format, checked against hand-made wire bytes.
#include "echolink/EchoLinkDirectory.h"
#include "echolink/EchoLinkPackets.h"
#include "echolink/GsmCodec.h"
#include "echolink/IncomingPolicy.h"
#include "echolink/Station.h"

#include <QTest>
#include <QtEndian>

using namespace zl::echolink;

class TestEchoLinkPackets : public QObject {
    Q_OBJECT

private slots:
    void sdesLayout()
    {
        const QByteArray p = sdesPacket("AB1CD", "Al");
        // Report header, then SDES: items from offset 16, end byte, padded to whole words.
        QCOMPARE(p.left(8), QByteArray::fromHex("c0c9000100000000"));
        QCOMPARE(p.mid(8, 2), QByteArray::fromHex("c1ca"));
        QCOMPARE(p.mid(12, 4), QByteArray(4, '\0'));
        const QByteArray items = QByteArray("\x01\x08"
                                            "CALLSIGN"
                                            "\x02\x11"
                                            "AB1CD          Al"
                                            "\x03\x08"
                                            "CALLSIGN"
                                            "\x04\x05"
                                            "08:30",
                                            46) +
                                 QByteArray(1, '\0');
        QCOMPARE(p.mid(16, items.size()), items);
        // 47 item bytes + 8 header bytes = 55, padded to 56: 14 words, field 13.
        QCOMPARE(p.size(), 64);
        QCOMPARE(qFromBigEndian<quint16>(p.constData() + 10), quint16(13));
        QCOMPARE(p.right(1), QByteArray(1, '\0'));
    }

    void byeLayout()
    {
        const QByteArray p = byePacket();
        QCOMPARE(p, QByteArray::fromHex("c0c9000100000000c1cb000400000000") + QByteArray("\x00\x07jan2002", 9) +
                        QByteArray(3, '\0'));
    }

    void textPackets()
    {
        QCOMPARE(infoPacket("line1\nline2"), QByteArray("oNDATA\rline1\rline2\0", 19));
        QCOMPARE(chatPacket("AB1CD", "hi"), QByteArray("oNDATAAB1CD>hi\r\n\0", 17));

        TextMessage chat = parseTextPacket(QByteArray("oNDATAAB>hello\r\n\0", 17));
        QCOMPARE(chat.kind, TextMessage::Kind::Chat);
        QCOMPARE(chat.text, QStringLiteral("AB>hello"));
        // Only bytes 1..5 are checked: any first byte but 0xC0 marks text.
        chat = parseTextPacket("xNDATAAB>x");
        QCOMPARE(chat.kind, TextMessage::Kind::Chat);
        QCOMPARE(chat.text, QStringLiteral("AB>x"));

        const TextMessage info = parseTextPacket(QByteArray("oNDATA\rRoom 1\rLocator JO65\0junk", 32));
        QCOMPARE(info.kind, TextMessage::Kind::Info);
        QCOMPARE(info.text, QStringLiteral("Room 1\nLocator JO65"));

        QCOMPARE(parseTextPacket("oNDATA").kind, TextMessage::Kind::None); // needs more than 6 bytes
        QCOMPARE(parseTextPacket("oNDATB hello").kind, TextMessage::Kind::None);
    }

    void sdesCallsignItem()
    {
        QCOMPARE(sdesCallsign(sdesPacket("ab1cd", "Al")), QStringLiteral("AB1CD"));
        // No name item: empty callsign.
        QByteArray noName = QByteArray::fromHex("c0c9000100000000c1ca000400000000") + QByteArray("\x01\x03xyz\0", 6);
        QCOMPARE(sdesCallsign(noName), QString());
        // An item that overruns the datagram ends the walk.
        QByteArray overrun = QByteArray::fromHex("c0c9000100000000c1ca000400000000") + QByteArray("\x02\x40"
                                                                                                  "AB",
                                                                                                  4);
        QCOMPARE(sdesCallsign(overrun), QString());
    }

    void audioHeader()
    {
        const QByteArray p = audioPacket(0x1234, QByteArray(132, 'g'));
        QCOMPARE(p.size(), kAudioPacketBytes);
        QCOMPARE(p.left(12), QByteArray::fromHex("c0031234") + QByteArray(8, '\0'));
    }

    void registration()
    {
        QCOMPARE(registrationRequest("AB1CD", "pw", registrationStatusText(EchoLinkDirectory::Status::Online, "08:05"),
                                     "Home"),
                 QByteArray("lAB1CD\xAC\xACpw\rONLINE3.38(08:05)\rHome\r"));
        QCOMPARE(registrationStatusText(EchoLinkDirectory::Status::Busy, "23:59"), QStringLiteral("BUSY3.40(23:59)"));
        QCOMPARE(registrationStatusText(EchoLinkDirectory::Status::Offline, "23:59"), QStringLiteral("OFF-V3.40"));
    }

    void stationList()
    {
        const QByteArray reply = "header text\n@@@\n4\n"
                                 "AB1CD-R\nClub Repeater [BUSY] 12:34\n123456\n10.0.0.1\n"
                                 "  AB2EF  \nTest [ON]\n99999999999\n10.0.0.2\n"
                                 "*CONF*\nRoom [x] [ON 07:15]\n42\n10.0.0.3\n"
                                 "SPACER\nnothing\n0\n.\n"
                                 "\nempty call\n1\n10.0.0.9\n"
                                 "+++\n";
        const auto stations = parseStationList(reply);
        QVERIFY(stations);
        QCOMPARE(stations->size(), 3);
        const Station& a = stations->at(0);
        QCOMPARE(a.callsign, QStringLiteral("AB1CD-R"));
        QCOMPARE(a.description, QStringLiteral("Club Repeater"));
        QCOMPARE(a.status, 3);
        QCOMPARE(a.time, QStringLiteral("12:34"));
        QCOMPARE(a.nodeId, 123456);
        QCOMPARE(a.ip, QStringLiteral("10.0.0.1"));
        const Station& b = stations->at(1);
        QCOMPARE(b.callsign, QStringLiteral("AB2EF"));
        QCOMPARE(b.status, 2);
        QCOMPARE(b.time, QString());
        QCOMPARE(b.nodeId, 0); // does not fit an int
        const Station& c = stations->at(2);
        QCOMPARE(c.description, QStringLiteral("Room [x]")); // cut at the last "["
        QCOMPARE(c.status, 2);
        QCOMPARE(c.time, QString());
        QCOMPARE(Station().nodeId, -1);
    }

    void stationListEdges()
    {
        QVERIFY(!parseStationList("no marker here\n+++\n"));
        // Fewer than 6 lines: no record, but a list.
        const auto shortList = parseStationList("@@@\n1\nAB1CD\n");
        QVERIFY(shortList);
        QVERIFY(shortList->isEmpty());
        // Cut off before "+++": parsed as far as whole records go.
        const auto cut = parseStationList("@@@\n2\nAB1CD\nx [ON] 01:02\n1\n10.0.0.1\nAB2EF\nhalf");
        QVERIFY(cut);
        QCOMPARE(cut->size(), 1);
        QCOMPARE(cut->first().time, QStringLiteral("01:02"));
    }

    void incomingRules()
    {
        QCOMPARE(parseCallsignList(" aa1aa,bb2bb\n\tCC3CC ,, "), QStringList({"AA1AA", "BB2BB", "CC3CC"}));
        QVERIFY(parseCallsignList("").isEmpty());
        // The limit counts the connections already in the table.
        QCOMPARE(incomingRejection("AA1AA", 1, 1, {}, {}), QStringLiteral("max clients reached"));
        QCOMPARE(incomingRejection("AA1AA", 0, 1, {}, {}), QString());
        // Allowed and blocked at once: blocked.
        QCOMPARE(incomingRejection("aa1aa", 0, 1, {"AA1AA"}, {"AA1AA"}), QStringLiteral("blocked / not allowed"));
        QCOMPARE(incomingRejection("BB2BB", 0, 5, {"AA1AA"}, {}), QStringLiteral("blocked / not allowed"));
        QCOMPARE(incomingRejection("aa1aa", 0, 5, {"AA1AA"}, {}), QString());
        // A caller without a callsign passes unless an allow list exists.
        QCOMPARE(incomingRejection("", 0, 5, {}, {"AA1AA"}), QString());
        QCOMPARE(incomingRejection("", 0, 5, {"AA1AA"}, {}), QStringLiteral("blocked / not allowed"));
    }

    void gsmShortFrameIsPadded()
    {
        // A frame cut short is padded, not read past its end.
        QCOMPARE(GsmCodec().decode(QByteArray(5, '\xD0')).size(), 320);
    }
};

QTEST_GUILESS_MAIN(TestEchoLinkPackets)
#include "tst_echolinkpackets.moc"
