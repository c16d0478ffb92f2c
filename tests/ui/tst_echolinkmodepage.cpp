#include "EchoLinkDirectoryServer.h"
#include "EchoLinkPeer.h"
#include "LogCapture.h"
#include "TempConfigHome.h"
#include "app/Config.h"
#include "echolink/EchoLinkDirectory.h"
#include "echolink/EchoLinkDispatcher.h"
#include "ui/EchoLinkModePage.h"

#include <QJsonObject>
#include <QSignalSpy>
#include <QTest>

using State = zl::echolink::EchoLinkQso::State;

namespace {

const QHostAddress kLocal("127.0.0.1");
const QHostAddress kNode("127.0.0.2");
const QHostAddress kOther("127.0.0.3");

} // namespace

class TestEchoLinkModePage : public QObject {
    Q_OBJECT

private slots:
    void goingOnlinePrintsTheOwnCallsign()
    {
        TempConfigHome home;
        EchoLinkDirectoryServer server;
        QVERIFY(server.isListening());
        zl::Config::instance().setSection(
            "echolink",
            QJsonObject{{"enabled", true}, {"callsign", "ab1cd"}, {"password", "pw"}, {"servers", "127.0.0.1"}});
        EchoLinkModePage page;
        page.directory()->setPortForTest(server.port());
        page.goOnline();
        QTRY_VERIFY(page.chatLines().contains("-- online as AB1CD"));
        QVERIFY(page.isModeConnected());

        // A node number the list doesn't have asks for the list again.
        page.connectTo(" 4321 ");
        QVERIFY(page.chatLines().contains("-- node 4321 not in the directory (open Directory to refresh)."));
    }

    void incomingCallsWithinTheLimits()
    {
        TempConfigHome home;
        EchoLinkDirectoryServer directory;
        zl::Config::instance().setSection("echolink", QJsonObject{{"callsign", "ab1cd"},
                                                                  {"password", "pw"},
                                                                  {"enabled", true},
                                                                  {"servers", "127.0.0.1"},
                                                                  {"accept_incoming", true},
                                                                  {"max_connections", 1},
                                                                  {"block_list", "yy2yy"}});
        const quint16 port = EchoLinkPeer::freePortPair(kOther);
        EchoLinkPeer first(kNode, port, quint16(port + 1));
        EchoLinkPeer second(kOther, port, quint16(port + 1));
        QVERIFY(first.isBound() && second.isBound());
        first.setName("zz1zz Zed");
        second.setName("yy2yy Yan");
        LogCapture log;
        EchoLinkModePage page;
        page.directory()->setPortForTest(directory.port());
        page.dispatcher()->setPortsForTest(port, quint16(port + 1), kLocal);
        page.goOnline();
        QSignalSpy heard(&page, &BaseModePage::lastHeardLine);

        first.connectTo(kLocal);
        QTRY_VERIFY(page.qso(kNode.toString()));
        QCOMPARE(page.qso(kNode.toString())->state(), State::Connected);
        QVERIFY(page.chatLines().contains("-- incoming connection from ZZ1ZZ"));
        QCOMPARE(page.activeRowKey(), kNode.toString());

        // The limit of one is reached: the second caller gets no answer.
        second.connectTo(kLocal);
        QTRY_VERIFY(log.lines().contains("EchoLink: rejecting YY2YY — max clients reached"));
        QVERIFY(!page.qso(kOther.toString()));

        // A talker is one last-heard line per reception, the station as call and target.
        first.sendAudio(kLocal, first.gsmPacket(QByteArray(1280, 0)));
        first.sendAudio(kLocal, first.gsmPacket(QByteArray(1280, 0)));
        QTRY_COMPARE(heard.size(), 1);
        QCOMPARE(heard.first().mid(1), QVariantList({"ZZ1ZZ", "", "node -1", "ZZ1ZZ", "", "", ""}));

        // BYE ends the connection; then the block list is what refuses the second caller.
        first.sendBye(kLocal);
        QTRY_VERIFY(!page.qso(kNode.toString()));
        QCOMPARE(page.activeRowKey(), QString());
        second.connectTo(kLocal);
        QTRY_VERIFY(log.lines().contains("EchoLink: rejecting YY2YY — blocked / not allowed"));
        QVERIFY(!page.qso(kOther.toString()));
    }
};

QTEST_MAIN(TestEchoLinkModePage)
#include "tst_echolinkmodepage.moc"
