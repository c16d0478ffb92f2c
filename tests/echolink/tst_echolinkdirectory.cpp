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

void setUp(EchoLinkDirectory& directory, quint16 port)
{
    directory.setServers({"127.0.0.1"});
    directory.setPortForTest(port);
    directory.setCallsign("ab1cd");
    directory.setPassword("secret");
    directory.setLocation("Test QTH");
}

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
        EchoLinkDirectoryServer server;
        server.setStationList(twoStations());
        EchoLinkDirectory directory;
        setUp(directory, server.port());
        QSignalSpy registered(&directory, &EchoLinkDirectory::registered);
        QSignalSpy stations(&directory, &EchoLinkDirectory::stationsUpdated);
        directory.refresh();
        QTRY_COMPARE(stations.count(), 1);
        QCOMPARE(registered.count(), 1);
        QCOMPARE(registered.first().first().toBool(), true);
        QVERIFY(directory.isRegistered());

        QCOMPARE(server.requests.size(), 2);
        const QByteArray reg = server.requests.first();
        QVERIFY(reg.startsWith("lAB1CD\xAC\xACsecret\rONLINE3.38("));
        QVERIFY(reg.endsWith(")\rTest QTH\r"));
        QCOMPARE(server.requests.at(1), QByteArray("s"));

        const auto list = stations.first().first().value<QList<Station>>();
        QCOMPARE(list.size(), 2);
        QCOMPARE(list.at(1).callsign, QStringLiteral("AB2EF-R"));
        QCOMPARE(list.at(1).status, 3);
        QCOMPARE(list.at(1).ip, QStringLiteral("127.0.0.3"));

        // Registered: a refresh asks for the list alone.
        directory.refresh();
        QTRY_COMPARE(stations.count(), 2);
        QCOMPARE(server.requests.size(), 3);
        QCOMPARE(server.requests.last(), QByteArray("s"));
    }

    void okCountsWithoutClose()
    {
        EchoLinkDirectoryServer server;
        server.setKeepOpen(true);
        EchoLinkDirectory directory;
        setUp(directory, server.port());
        QSignalSpy registered(&directory, &EchoLinkDirectory::registered);
        directory.goOnline(EchoLinkDirectory::Status::Busy);
        QTRY_COMPARE(registered.count(), 1);
        QCOMPARE(registered.first().first().toBool(), true);
        QVERIFY(server.requests.first().contains("\rBUSY3.40("));
    }

    void refusalAndGoingOff()
    {
        EchoLinkDirectoryServer server;
        server.setRegistrationReply("NO");
        EchoLinkDirectory directory;
        setUp(directory, server.port());
        QSignalSpy registered(&directory, &EchoLinkDirectory::registered);
        QSignalSpy stations(&directory, &EchoLinkDirectory::stationsUpdated);
        directory.refresh();
        QTRY_COMPARE(registered.count(), 1);
        QCOMPARE(registered.first().first().toBool(), false);

        // Online, then off: the off registration is answered OK but reads as not registered.
        server.setRegistrationReply("OK");
        directory.goOnline(EchoLinkDirectory::Status::Online);
        QTRY_COMPARE(registered.count(), 2);
        QCOMPARE(registered.last().first().toBool(), true);
        directory.goOffline();
        QTRY_COMPARE(registered.count(), 3);
        QCOMPARE(registered.last().first().toBool(), false);
        QVERIFY(server.requests.last().contains("\rOFF-V3.40\r"));
        QVERIFY(!directory.isRegistered());
        QCOMPARE(stations.count(), 0); // a refused registration fetches no list
    }

    void renewalRepeats()
    {
        EchoLinkDirectoryServer server;
        EchoLinkDirectory directory;
        setUp(directory, server.port());
        directory.setRenewIntervalForTest(100);
        QSignalSpy registered(&directory, &EchoLinkDirectory::registered);
        directory.goOnline(EchoLinkDirectory::Status::Online);
        QTRY_VERIFY(registered.count() >= 3);
        directory.goOffline();
        QTRY_VERIFY(server.requests.last().contains("OFF-V3.40"));
        const qsizetype after = server.requests.size();
        QTest::qWait(300);
        QCOMPARE(server.requests.size(), after); // off: the timer is stopped
    }

    void listCutShortOrMalformed()
    {
        EchoLinkDirectoryServer server;
        EchoLinkDirectory directory;
        setUp(directory, server.port());
        QSignalSpy stations(&directory, &EchoLinkDirectory::stationsUpdated);
        QSignalSpy errors(&directory, &EchoLinkDirectory::errorReported);
        // The connection closes before "+++": what came is parsed.
        server.setStationList("@@@\n2\nAB1CD\nx [ON] 01:02\n1\n10.0.0.1\n");
        directory.refresh();
        QTRY_COMPARE(stations.count(), 1);
        QCOMPARE(stations.first().first().value<QList<Station>>().size(), 1);
        // No "@@@" at all.
        server.setStationList("Service unavailable\n");
        directory.refresh();
        QTRY_COMPARE(errors.count(), 1);
        QCOMPARE(errors.first().first().toString(), QStringLiteral("EchoLink directory: malformed station list"));
    }

    void fallsOverToSecondServer()
    {
        // Two servers on the same port: nothing listens on 127.0.0.254, so the job goes on to
        // the loopback directory on 127.0.0.1.
        EchoLinkDirectoryServer server;
        server.setStationList(twoStations());
        EchoLinkDirectory directory;
        setUp(directory, server.port());
        directory.setServers({"127.0.0.254", "127.0.0.1"});
        QSignalSpy stations(&directory, &EchoLinkDirectory::stationsUpdated);
        QSignalSpy errors(&directory, &EchoLinkDirectory::errorReported);
        directory.refresh();
        QTRY_COMPARE(stations.count(), 1);
        QCOMPARE(errors.count(), 0);
        QCOMPARE(server.requests.size(), 2);

        // After a success the next job starts at the first server again.
        QTcpServer first;
        QVERIFY(first.listen(QHostAddress("127.0.0.254"), server.port()));
        directory.refresh();
        QTRY_VERIFY(first.hasPendingConnections());
    }

    void allServersFail()
    {
        EchoLinkDirectory directory;
        setUp(directory, closedPort());
        directory.setServers({"127.0.0.1", "127.0.0.1"});
        QSignalSpy errors(&directory, &EchoLinkDirectory::errorReported);
        directory.refresh();
        QTRY_COMPARE(errors.count(), 1);
        QVERIFY(errors.first().first().toString().startsWith("EchoLink directory: "));

        EchoLinkDirectory none;
        QSignalSpy noneErrors(&none, &EchoLinkDirectory::errorReported);
        none.refresh();
        QCOMPARE(noneErrors.count(), 1);
        QCOMPARE(noneErrors.first().first().toString(), QStringLiteral("no EchoLink directory server configured"));
    }
};

QTEST_GUILESS_MAIN(TestEchoLinkDirectory)
#include "tst_echolinkdirectory.moc"
