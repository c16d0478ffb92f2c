// NxdnNetwork against a loopback NXDN reflector.
#include "NxdnReflector.h"
#include "nxdn/NxdnFrame.h"
#include "nxdn/NxdnNetwork.h"

#include <QNetworkDatagram>
#include <QSignalSpy>
#include <QTest>

using namespace zl::nxdn;

namespace {

QByteArray nxdnd(char fill)
{
    return buildNxdnd(1234, 65000, flags::kVoice, QByteArray(33, fill));
}

} // namespace

class TestNxdnNetwork : public QObject {
    Q_OBJECT

private slots:
    void controlDatagrams()
    {
        QCOMPARE(buildNxdnControl("NXDNP", " xx0abc ", 0x1234), QByteArray("NXDNPXX0ABC    \x12\x34"));
        QCOMPARE(buildNxdnControl("NXDNU", "XX0ABCDEFGHIJ", 1), QByteArray("NXDNUXX0ABCDEFG\x00\x01", 17));
    }

    void linksRelaysAndFollowsReflectorUnlink()
    {
        NxdnReflector reflector(65000);
        NxdnNetwork a("XX1AAA", 65000), b("XX2BBB", 65000);
        a.setPollInterval(50);
        QSignalSpy linkedA(&a, &NxdnNetwork::linked);
        QSignalSpy rxB(&b, &NxdnNetwork::dataReceived);
        QVERIFY(a.connectTo("127.0.0.1", reflector.port()));
        QVERIFY(b.connectTo("127.0.0.1", reflector.port()));
        QTRY_VERIFY(a.isLinked() && b.isLinked());
        QCOMPARE(linkedA.count(), 1);

        a.sendFrame(nxdnd('v'));
        a.sendFrame(nxdnd('w').left(42));
        QTRY_COMPARE(rxB.count(), 1);
        QCOMPARE(rxB.first().first().toByteArray(), nxdnd('v'));

        // The reflector unlinks everybody; polling goes on and links again by itself.
        reflector.unlinkAll();
        QTRY_COMPARE(linkedA.count(), 2);
        QVERIFY(!linkedA.at(1).first().toBool());
        QTRY_COMPARE(linkedA.count(), 3);
        QVERIFY(linkedA.at(2).first().toBool());

        a.disconnectFrom();
        QTRY_VERIFY(reflector.received.last().startsWith("NXDNU"));
        QCOMPARE(linkedA.count(), 4);
    }

    void nothingIsSentBeforeTheLink()
    {
        QUdpSocket fake;
        QVERIFY(fake.bind(QHostAddress::LocalHost, 0));
        NxdnNetwork net("XX0ABC", 65000);
        QSignalSpy data(&net, &NxdnNetwork::dataReceived);
        QVERIFY(net.connectTo("127.0.0.1", fake.localPort()));
        QTRY_VERIFY(fake.hasPendingDatagrams());
        const QNetworkDatagram poll = fake.receiveDatagram();
        QCOMPARE(poll.data().size(), 17);
        net.sendFrame(nxdnd('a'));
        QTest::qWait(50);
        QVERIFY(!fake.hasPendingDatagrams());
        // Data is received before the link all the same, cut to 43 bytes.
        fake.writeDatagram(nxdnd('b') + "xx", poll.senderAddress(), quint16(poll.senderPort()));
        QTRY_COMPARE(data.count(), 1);
        QCOMPARE(data.first().first().toByteArray(), nxdnd('b'));
        fake.writeDatagram(poll.data(), poll.senderAddress(), quint16(poll.senderPort()));
        QTRY_VERIFY(net.isLinked());
        net.sendFrame(nxdnd('c'));
        QTRY_VERIFY(fake.hasPendingDatagrams());
        QCOMPARE(fake.receiveDatagram().data(), nxdnd('c'));
    }

    void unresolvableHost()
    {
        NxdnNetwork net("XX0ABC", 1);
        QSignalSpy errors(&net, &NxdnNetwork::errorReported);
        QVERIFY(!net.connectTo("no-such-host.invalid"));
        QCOMPARE(errors.last().first().toString(), QStringLiteral("NXDN: cannot resolve no-such-host.invalid"));
    }
};

QTEST_GUILESS_MAIN(TestNxdnNetwork)
#include "tst_nxdnnetwork.moc"
