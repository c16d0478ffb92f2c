// YsfNetwork against a loopback YSF reflector, and the YSFD datagram layout.
#include "YsfReflector.h"
#include "ysf/YsfFrame.h"
#include "ysf/YsfNetwork.h"

#include <QNetworkDatagram>
#include <QSignalSpy>
#include <QTest>

using namespace zl::ysf;

namespace {

QByteArray ysfd(char fill)
{
    return buildYsfd("XX0ABC", "XX0ABC", "ALL", 5, false, QByteArray(120, fill));
}

} // namespace

class TestYsfNetwork : public QObject {
    Q_OBJECT

private slots:
    void ysfdLayout()
    {
        const QByteArray payload = QByteArray::fromHex("d471c9634d") + QByteArray(115, '\x11');
        const QByteArray d = buildYsfd("GW1", "XX0ABC", "ALL", 0x45, true, payload);
        QCOMPARE(d.size(), 155);
        QCOMPARE(d.left(34), QByteArray("YSFDGW1       XX0ABC    ALL       "));
        QCOMPARE(quint8(d.at(34)), quint8(0x8B)); // counter 0x45 << 1 | end
        QCOMPARE(d.mid(35), payload);

        Ysfd parsed;
        QVERIFY(parseYsfd(d, parsed));
        QCOMPARE(parsed.gateway, QStringLiteral("GW1"));
        QCOMPARE(parsed.source, QStringLiteral("XX0ABC"));
        QCOMPARE(parsed.destination, QStringLiteral("ALL"));
        QCOMPARE(parsed.counter, quint8(0x45));
        QVERIFY(parsed.end);
        QCOMPARE(parsed.payload, payload);

        // Long texts are cut, payloads are cut or padded.
        const QByteArray e = buildYsfd("GATEWAY-LONG-NAME", "S", "D", 200, false, QByteArray(130, '\x22'));
        QCOMPARE(e.mid(4, 10), QByteArray("GATEWAY-LO"));
        QCOMPARE(quint8(e.at(34)), quint8((200 & 0x7F) << 1));
        QCOMPARE(e.size(), 155);
        QCOMPARE(buildYsfd("G", "S", "D", 0, false, QByteArray(3, '\x01')).mid(35),
                 QByteArray(3, '\x01') + QByteArray(117, '\0'));

        // The end flag is bit 0 of that byte alone.
        QVERIFY(parseYsfd(buildYsfd("G", "S", "D", 1, false, payload), parsed));
        QVERIFY(!parsed.end);
        QVERIFY(!parseYsfd(d.left(154), parsed));
        QVERIFY(!parseYsfd(QByteArray("YSFX") + d.mid(4), parsed));
        QCOMPARE(buildYsfControl("YSFP", "XX0ABC"), QByteArray("YSFPXX0ABC    "));
        QCOMPARE(buildYsfOptions("XX0ABC", "opt").size(), 50);
    }

    void linksAndSendsOptionsOnce()
    {
        YsfReflector reflector;
        reflector.setPollInterval(50);
        YsfNetwork net("XX0ABC", "TG91");
        QSignalSpy linked(&net, &YsfNetwork::linked);
        QVERIFY(net.connectTo("127.0.0.1", reflector.port()));
        QTRY_COMPARE(linked.count(), 1);
        QVERIFY(linked.first().first().toBool());
        // Unsolicited polls keep coming; the options go out once.
        QTest::qWait(300);
        const auto options = std::count_if(reflector.received.begin(), reflector.received.end(),
                                           [](const QByteArray& d) { return d.startsWith("YSFO"); });
        QCOMPARE(options, 1);
        QCOMPARE(reflector.received.first(), QByteArray("YSFPXX0ABC    "));
        QCOMPARE(linked.count(), 1);
        // Only whole YSFD datagrams go out.
        net.sendFrame(ysfd('y').left(154));
        net.sendFrame(ysfd('x'));
        QTRY_VERIFY(reflector.received.contains(ysfd('x')));
        QVERIFY(std::none_of(reflector.received.begin(), reflector.received.end(),
                             [](const QByteArray& d) { return d.size() == 154; }));

        net.disconnectFrom();
        QCOMPARE(linked.count(), 2);
        QVERIFY(!linked.last().first().toBool());
        QTRY_VERIFY(reflector.received.last().startsWith("YSFU"));
        QTRY_VERIFY(reflector.clients().isEmpty());
    }

    void pollsRepeatAtTheInterval()
    {
        QUdpSocket deaf;
        QVERIFY(deaf.bind(QHostAddress::LocalHost, 0));
        YsfNetwork net("XX0ABC");
        net.setPollInterval(40);
        QVERIFY(net.connectTo("127.0.0.1", deaf.localPort()));
        int polls = 0;
        QTRY_VERIFY(([&] {
            while (deaf.hasPendingDatagrams())
                polls += deaf.receiveDatagram().data() == QByteArray("YSFPXX0ABC    ");
            return polls >= 4;
        }()));
        QVERIFY(!net.isLinked());
    }

    void framesFlowWithoutPollReply()
    {
        // A reflector that sends data but never a poll reply: data flows, the link is not reported.
        QUdpSocket fake;
        QVERIFY(fake.bind(QHostAddress::LocalHost, 0));
        YsfNetwork net("XX0ABC");
        QSignalSpy linked(&net, &YsfNetwork::linked);
        QSignalSpy data(&net, &YsfNetwork::dataReceived);
        QVERIFY(net.connectTo("127.0.0.1", fake.localPort()));
        QTRY_VERIFY(fake.hasPendingDatagrams());
        const QNetworkDatagram poll = fake.receiveDatagram();
        const QHostAddress to = poll.senderAddress();
        const quint16 toPort = quint16(poll.senderPort());
        // Over-long YSFD is cut to 155; short ones pass as they are, for the parser to refuse.
        fake.writeDatagram(ysfd('a') + "trailing", to, toPort);
        fake.writeDatagram(ysfd('b').left(100), to, toPort);
        fake.writeDatagram(QByteArray("XXXX"), to, toPort);
        QTRY_COMPARE(data.count(), 2);
        QCOMPARE(data.at(0).first().toByteArray(), ysfd('a'));
        QCOMPARE(data.at(1).first().toByteArray().size(), 100);
        QCOMPARE(linked.count(), 0);

        // A poll reply from another address or port does not link.
        QUdpSocket other;
        other.writeDatagram(QByteArray("YSFPLOOPBACK  "), to, toPort);
        other.writeDatagram(ysfd('c'), to, toPort);
        QTest::qWait(100);
        QCOMPARE(linked.count(), 0);
        QCOMPARE(data.count(), 2);
        fake.writeDatagram(QByteArray("YSFPLOOPBACK  "), to, toPort);
        QTRY_COMPARE(linked.count(), 1);
    }

    void unresolvableHost()
    {
        YsfNetwork net("XX0ABC");
        QSignalSpy errors(&net, &YsfNetwork::errorReported);
        QVERIFY(!net.connectTo("no-such-host.invalid", 42000));
        QCOMPARE(errors.last().first().toString(), QStringLiteral("YSF: cannot resolve no-such-host.invalid"));
        net.sendFrame(ysfd('z')); // no socket: nothing happens
    }
};

QTEST_GUILESS_MAIN(TestYsfNetwork)
#include "tst_ysfnetwork.moc"
