// EchoLinkDirectory against a loopback directory server.
#include "EchoLinkDirectoryServer.h"
#include "echolink/EchoLinkDirectory.h"

#include <QSignalSpy>
#include <QTcpServer>
#include <QTest>

using zl::echolink::EchoLinkDirectory;
using zl::echolink::Station;

namespace {

QByteArray twoStations()
{
    return EchoLinkDirectoryServer::listReply({{"AB1CD-L", "Home [ON] 10:11", "1234", "127.0.0.2"},
                                               {"AB2EF-R", "Club Repeater [BUSY] 12:34", "5678", "127.0.0.3"}});
}

// A directory client of the loopback server (or of port), with spies on what it reports.
struct Rig {
    EchoLinkDirectoryServer server;
    EchoLinkDirectory directory;
    QSignalSpy registered{&directory, &EchoLinkDirectory::registered};
    QSignalSpy stations{&directory, &EchoLinkDirectory::stationsUpdated};
    QSignalSpy errors{&directory, &EchoLinkDirectory::errorReported};

    explicit Rig(quint16 port = 0)
    {
        directory.setServers({"127.0.0.1"});
        directory.setPortForTest(port ? port : server.port());
        directory.setCallsign("ab1cd");
        directory.setPassword("secret");
        directory.setLocation("Test QTH");
    }
};

// A port on which nothing listens.
quint16 closedPort()
{
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost, 0);
    return probe.serverPort();
}

} // namespace

class TestEchoLinkDirectory : public QObject {
    Q_OBJECT

private slots:
    void init() { qRegisterMetaType<QList<Station>>(); }

    void registersThenFetchesList()
    {
        Rig r;
        r.server.setStationList(twoStations());
        r.directory.refresh();
        QTRY_COMPARE(r.stations.count(), 1);
        QCOMPARE(r.registered.count(), 1);
        QCOMPARE(r.registered.first().first().toBool(), true);
        QVERIFY(r.directory.isRegistered());

        QCOMPARE(r.server.requests.size(), 2);
        const QByteArray reg = r.server.requests.first();
        QVERIFY(reg.startsWith("lAB1CD\xAC\xACsecret\rONLINE3.38("));
        QVERIFY(reg.endsWith(")\rTest QTH\r"));
        QCOMPARE(r.server.requests.at(1), QByteArray("s"));

        const auto list = r.stations.first().first().value<QList<Station>>();
        QCOMPARE(list.size(), 2);
        QCOMPARE(list.at(1).callsign, QStringLiteral("AB2EF-R"));
        QCOMPARE(list.at(1).status, 3);
        QCOMPARE(list.at(1).ip, QStringLiteral("127.0.0.3"));

        // Registered: a refresh asks for the list alone.
        r.directory.refresh();
        QTRY_COMPARE(r.stations.count(), 2);
        QCOMPARE(r.server.requests.size(), 3);
        QCOMPARE(r.server.requests.last(), QByteArray("s"));
    }

    void refusalBusyAndOff()
    {
        Rig r;
        r.server.setRegistrationReply("NO");
        r.directory.refresh();
        QTRY_COMPARE(r.registered.count(), 1);
        QCOMPARE(r.registered.first().first().toBool(), false);

        // Busy, then off: "OK" counts without waiting for the close; the off registration is
        // answered OK but reads as not registered.
        r.server.setRegistrationReply("OK");
        r.server.setKeepOpen(true);
        r.directory.goOnline(EchoLinkDirectory::Status::Busy);
        QTRY_COMPARE(r.registered.count(), 2);
        QCOMPARE(r.registered.last().first().toBool(), true);
        QVERIFY(r.server.requests.last().contains("\rBUSY3.40("));
        r.directory.goOffline();
        QTRY_COMPARE(r.registered.count(), 3);
        QCOMPARE(r.registered.last().first().toBool(), false);
        QVERIFY(r.server.requests.last().contains("\rOFF-V3.40\r"));
        QVERIFY(!r.directory.isRegistered());
        QCOMPARE(r.stations.count(), 0); // a refused registration fetches no list
    }

    void renewalRepeats()
    {
        Rig r;
        r.directory.setRenewIntervalForTest(100);
        r.directory.goOnline(EchoLinkDirectory::Status::Online);
        QTRY_VERIFY(r.registered.count() >= 3);
        r.directory.goOffline();
        QTRY_VERIFY(r.server.requests.last().contains("OFF-V3.40"));
        const qsizetype after = r.server.requests.size();
        QTest::qWait(300);
        QCOMPARE(r.server.requests.size(), after); // off: the timer is stopped
    }

    void malformedList()
    {
        Rig r;
        r.server.setStationList("Service unavailable\n");
        r.directory.refresh();
        QTRY_COMPARE(r.errors.count(), 1);
        QCOMPARE(r.errors.first().first().toString(), QStringLiteral("EchoLink directory: malformed station list"));
    }

    void fallsOverToSecondServer()
    {
        // Two servers on the same port: nothing listens on 127.0.0.254, so the job goes on to
        // the loopback directory on 127.0.0.1.
        Rig r;
        r.server.setStationList(twoStations());
        r.directory.setServers({"127.0.0.254", "127.0.0.1"});
        r.directory.refresh();
        QTRY_COMPARE(r.stations.count(), 1);
        QCOMPARE(r.errors.count(), 0);
        QCOMPARE(r.server.requests.size(), 2);

        // After a success the next job starts at the first server again.
        QTcpServer first;
        QVERIFY(first.listen(QHostAddress("127.0.0.254"), r.server.port()));
        r.directory.refresh();
        QTRY_VERIFY(first.hasPendingConnections());
    }

    void allServersFail()
    {
        Rig r(closedPort());
        r.directory.setServers({"127.0.0.1", "127.0.0.1"});
        r.directory.refresh();
        QTRY_COMPARE(r.errors.count(), 1);
        QVERIFY(r.errors.first().first().toString().startsWith("EchoLink directory: "));

        EchoLinkDirectory none;
        QSignalSpy noneErrors(&none, &EchoLinkDirectory::errorReported);
        none.refresh();
        QCOMPARE(noneErrors.count(), 1);
        QCOMPARE(noneErrors.first().first().toString(), QStringLiteral("no EchoLink directory server configured"));
    }
};

QTEST_GUILESS_MAIN(TestEchoLinkDirectory)
#include "tst_echolinkdirectory.moc"
