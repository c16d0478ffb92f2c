// M17Client against a loopback reflector that speaks the M17 network protocol.
#include "M17Reflector.h"
#include "m17/M17Callsign.h"
#include "m17/M17Client.h"

#include <QNetworkDatagram>
#include <QSignalSpy>
#include <QTest>
#include <QUdpSocket>

using zl::m17::M17Client;
using State = M17Client::State;

namespace {

M17Client::Timing fastTiming()
{
    M17Client::Timing t;
    t.linkTimeoutMs = 300;
    t.pingWatchdogMs = 400;
    return t;
}

QByteArray streamFrame(char marker)
{
    QByteArray f = QByteArray("M17 ") + QByteArray(50, marker);
    return f;
}

} // namespace

class TestM17Client : public QObject {
    Q_OBJECT

private slots:
    void init() { qRegisterMetaType<State>(); }

    void linksAndAnswersPings()
    {
        M17Reflector reflector;
        reflector.setPingInterval(100);
        M17Client client;
        client.setTiming(fastTiming());
        QSignalSpy states(&client, &M17Client::stateChanged);
        QSignalSpy infos(&client, &M17Client::info);
        QVERIFY(client.linkTo("127.0.0.1", reflector.port(), "XX0ABC", 'C'));
        QCOMPARE(client.state(), State::Linking);
        QTRY_COMPARE(client.state(), State::Linked);
        QCOMPARE(infos.first().first().toString(),
                 QStringLiteral("CONN → 127.0.0.1:%1 module C").arg(reflector.port()));
        QCOMPARE(infos.at(1).first().toString(), QStringLiteral("ACKN — linked"));

        // The CONN on the wire: "CONN", the callsign in base 40, the module letter.
        QCOMPARE(reflector.received.first(),
                 QByteArray("CONN") + zl::m17::addressBytes(zl::m17::encodeCallsign("XX0ABC")) + "C");
        QCOMPARE(reflector.clients().size(), 1);
        QCOMPARE(reflector.clients().first().module, 'C');

        // Pings keep the link up well past the watchdog interval.
        QTest::qWait(1000);
        QCOMPARE(client.state(), State::Linked);
        QVERIFY(
            reflector.received.contains(QByteArray("PONG") + zl::m17::addressBytes(zl::m17::encodeCallsign("XX0ABC"))));
        QCOMPARE(states.count(), 2);
    }

    void nackRejects()
    {
        M17Client client;
        QSignalSpy rejected(&client, &M17Client::rejected);
        // A NACK from the reflector ends in Rejected with its text.
        QUdpSocket fake;
        QVERIFY(fake.bind(QHostAddress::LocalHost, 0));
        QVERIFY(client.linkTo("127.0.0.1", fake.localPort(), "XX0ABC", 'A'));
        QTRY_VERIFY(fake.hasPendingDatagrams());
        const QNetworkDatagram conn = fake.receiveDatagram();
        fake.writeDatagram(QByteArray("NACK"), conn.senderAddress(), quint16(conn.senderPort()));
        QTRY_COMPARE(client.state(), State::Rejected);
        QCOMPARE(rejected.last().first().toString(), QStringLiteral("reflector said NACK"));
    }

    void badArgumentsAreRefusedBeforeAnySocketWork()
    {
        M17Client client;
        QSignalSpy rejected(&client, &M17Client::rejected);
        QVERIFY(!client.linkTo("127.0.0.1", 17000, "XX0ABCDEFG", 'A'));
        QCOMPARE(rejected.last().first().toString(), QStringLiteral("callsign invalid (1-9 chars)"));
        QVERIFY(!client.linkTo("127.0.0.1", 17000, "", 'A'));
        QVERIFY(!client.linkTo("127.0.0.1", 17000, "XX0ABC", 'a'));
        QCOMPARE(rejected.last().first().toString(), QStringLiteral("module must be A-Z"));
        QCOMPARE(client.state(), State::NotLinked);
        QVERIFY(!client.linkTo("no-such-host.invalid", 17000, "XX0ABC", 'A'));
        QCOMPARE(rejected.last().first().toString(), QStringLiteral("DNS lookup failed for no-such-host.invalid"));
        QCOMPARE(client.state(), State::Failed);
    }

    void lostLinksComeBackAfterGrowingWaits_data()
    {
        QTest::addColumn<QString>("cause");
        QTest::newRow("unanswered CONN") << "conn";
        QTest::newRow("silent reflector") << "silence";
        QTest::newRow("DISC from reflector") << "disc";
    }

    void lostLinksComeBackAfterGrowingWaits()
    {
        QFETCH(QString, cause);
        M17Reflector reflector;
        reflector.setPingInterval(100);
        M17Client client;
        M17Client::Timing timing = fastTiming();
        timing.backoffSpeedup = 20; // the waits of 2, 4, 8 s take 100, 200, 400 ms
        client.setTiming(timing);
        QSignalSpy countdown(&client, &M17Client::reconnectCountdown);
        QSignalSpy rejected(&client, &M17Client::rejected);
        reflector.setSilent(cause == "conn");
        QVERIFY(client.linkTo("127.0.0.1", reflector.port(), "XX0ABC", 'B'));
        if (cause != "conn") {
            QTRY_COMPARE(client.state(), State::Linked);
            if (cause == "silence")
                reflector.setSilent(true);
            else
                reflector.disconnectAll();
        }
        QTRY_COMPARE(client.state(), State::Reconnecting);
        QCOMPARE(countdown.first().first().toInt(), 100);
        if (cause != "disc") {
            // Still no answer: each wait doubles.
            QTRY_VERIFY_WITH_TIMEOUT(countdown.contains(QVariantList{400}), 5000);
            QVERIFY(countdown.contains(QVariantList{200}));
            reflector.setSilent(false);
        }
        QTRY_COMPARE_WITH_TIMEOUT(client.state(), State::Linked, 5000);
        QVERIFY(rejected.isEmpty());

        // Our own DISC ends it: no link follows.
        client.disconnectFromReflector();
        QCOMPARE(client.state(), State::NotLinked);
        QTRY_VERIFY(reflector.received.last().startsWith("DISC"));
        QTest::qWait(300);
        QCOMPARE(client.state(), State::NotLinked);
        QVERIFY(reflector.clients().isEmpty());
    }

    void framesRelayedBetweenClients()
    {
        M17Reflector reflector;
        M17Client a, b;
        QSignalSpy rxB(&b, &M17Client::voiceFrameRx);
        QVERIFY(a.linkTo("127.0.0.1", reflector.port(), "XX1AAA", 'E'));
        QVERIFY(b.linkTo("127.0.0.1", reflector.port(), "XX2BBB", 'E'));
        QTRY_COMPARE(a.state(), State::Linked);
        QTRY_COMPARE(b.state(), State::Linked);

        a.sendFrame(streamFrame('x'));
        a.sendFrame(streamFrame('y').left(53)); // wrong size: dropped by the sender
        a.sendFrame(streamFrame('z'));
        QTRY_COMPARE(rxB.count(), 2);
        QCOMPARE(rxB.at(0).first().toByteArray(), streamFrame('x'));
        QCOMPARE(rxB.at(1).first().toByteArray(), streamFrame('z'));
        QCOMPARE(reflector.relayed.size(), 2);

        // Not linked: nothing is sent.
        a.disconnectFromReflector();
        a.sendFrame(streamFrame('w'));
        QTest::qWait(100);
        QCOMPARE(reflector.relayed.size(), 2);
    }

    void foreignAndMalformedDatagramsAreIgnored()
    {
        M17Reflector reflector;
        M17Client client;
        QSignalSpy rx(&client, &M17Client::voiceFrameRx);
        QSignalSpy states(&client, &M17Client::stateChanged);
        QVERIFY(client.linkTo("127.0.0.1", reflector.port(), "XX0ABC", 'A'));
        QTRY_COMPARE(client.state(), State::Linked);
        const M17Reflector::Client me = reflector.clients().first();

        // A stranger on another port sends frames and control packets.
        QUdpSocket stranger;
        for (const QByteArray& d : {streamFrame('s'), QByteArray("DISC"), QByteArray("NACK")})
            stranger.writeDatagram(d, me.address, me.port);
        // The reflector itself sends nonsense of every length, for each prefix followed by one
        // good frame, which must be the only thing that comes through.
        int batch = 0;
        for (const char* prefix : {"M17 ", "ACK", "PIN", "XXXX", "DIS"}) {
            for (int len = 0; len <= 60; ++len) {
                QByteArray d = QByteArray(prefix).left(len);
                d.append(QByteArray(std::max(0, len - int(d.size())), '\x5a'));
                if (len != 54 || !d.startsWith("M17 "))
                    reflector.sendTo(me, d);
            }
            reflector.sendTo(me, streamFrame('k'));
            ++batch;
            QTRY_COMPARE(rx.count(), batch);
            QCOMPARE(rx.last().first().toByteArray(), streamFrame('k'));
        }
        QCOMPARE(client.state(), State::Linked);
        QCOMPARE(states.count(), 2);
    }
};

QTEST_GUILESS_MAIN(TestM17Client)
#include "tst_m17client.moc"
