#include "AprsIsServer.h"
#include "HomebrewMaster.h"
#include "TempConfigHome.h"
#include "app/Config.h"
#include "aprs/AprsClient.h"
#include "dmr/DmrPeerManager.h"
#include "dmr/Peer.h"
#include "ui/AprsModePage.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonObject>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QSignalSpy>
#include <QTableWidget>
#include <QTest>

class TestAprsModePage : public QObject {
    Q_OBJECT

    // The page's settings for the loopback server, logged in as N0CALL-7 with its passcode.
    static void useServer(AprsIsServer& server, QJsonObject settings)
    {
        server.acceptPasscode("N0CALL", 13023);
        settings.insert("enabled", true);
        settings.insert("callsign_ssid", "n0call-7");
        settings.insert("server_host", "127.0.0.1");
        settings.insert("server_port", server.port());
        settings.insert("server", QStringLiteral("127.0.0.1:%1").arg(server.port()));
        zl::Config::instance().setSection("aprs", settings);
    }

    // Another station on the same server.
    static void logIn(zl::aprs::AprsClient& other, const AprsIsServer& server, const QString& call)
    {
        other.setServer("127.0.0.1", server.port());
        other.setCallsign(call);
        other.start();
    }

private slots:
    // The page against an APRS-IS server: messages acked once per copy and kept once, topics,
    // positions with distance and bearing, a message to another station followed to its ack,
    // and a new login after the server is lost.
    void messagesTopicsAndPositions()
    {
        TempConfigHome home;
        AprsIsServer server;
        useServer(server, {{"topics", QJsonArray{"pota", "aprsthursday"}}, {"lat", 41.0}, {"lon", -71.42016666}});
        AprsModePage page;
        page.client()->setTimersForTests(1000, 50);
        QTRY_VERIFY(page.isModeConnected());

        const QByteArray message = "DL1B>APRS,TCPIP*::N0CALL   :hello{5";
        server.send(message);
        server.send(message);
        server.send("DL1B>APRS,TCPIP*::W1AW     :#APRSThu check-in");
        server.send("OH7LZB-2>TQ4W2V,WIDE2-1,qAo,OH7LZB:`c51!f?>/]\"3x}=");
        auto* activity = page.findChild<QListWidget*>("aprsActivity");
        QTRY_COMPARE(activity->count(), 1);
        QVERIFY2(activity->item(0)->text().endsWith("OH7LZB-2: POS 41.78767,-71.42017 /> ]\"3x}= — 87.6 km, 000°"),
                 qPrintable(activity->item(0)->text()));
        QTRY_COMPARE(server.lines.count("N0CALL-7>APRS,TCPIP*::DL1B     :ack5"), 2);
        auto* history = page.findChild<QTableWidget*>("aprsHistory");
        QCOMPARE(history->rowCount(), 1);
        QCOMPARE(history->item(0, 4)->text(), QStringLiteral("hello"));
        auto* topics = page.findChild<QTableWidget*>("aprsTopics");
        QCOMPARE(topics->rowCount(), 1);
        QCOMPARE(topics->item(0, 2)->text(), QStringLiteral("W1AW"));

        // Another station on the same server answers through it.
        zl::aprs::AprsClient other;
        logIn(other, server, "N0CALL-5");
        connect(&other, &zl::aprs::AprsClient::packetReceived, &other, [&other](const zl::aprs::ParsedPacket& p) {
            if (p.type == zl::aprs::ParsedPacket::Message && !p.isAck && p.addressee == "N0CALL-5")
                other.sendAck(p.source, p.msgId);
        });
        QTRY_COMPARE(server.logins, 2);
        page.findChild<QLineEdit*>("aprsDest")->setText(" n0call-5 ");
        page.findChild<QLineEdit*>("aprsText")->setText(QString(100, QLatin1Char('x')));
        page.findChild<QPushButton*>("aprsSend")->click();
        QTRY_VERIFY(server.lines.contains("N0CALL-7>APRS,TCPIP*::N0CALL-5 :" + QByteArray(67, 'x') + "{1"));
        QTRY_COMPARE(history->item(1, 5)->text(), QStringLiteral("ACK"));
        QFile file(QFileInfo(zl::Config::instance().path()).dir().filePath("aprs_msgs.json"));
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QByteArray stored = file.readAll();
        QVERIFY(stored.contains("\"status\":\"ACK\"") && stored.contains("\"text\":\"hello\""));

        // Nobody answers N0CALL-3: the message is sent again, then the row shows "no ACK". Each look at the
        // clock moves it past the retry wait.
        qint64 now = 0;
        page.client()->setClockForTests([&now] { return now += 31'000; });
        page.client()->setTimersForTests(20, 50);
        page.findChild<QLineEdit*>("aprsDest")->setText("N0CALL-3");
        page.findChild<QLineEdit*>("aprsText")->setText("anyone?");
        page.findChild<QPushButton*>("aprsSend")->click();
        QTRY_COMPARE(history->item(2, 5)->text(), QStringLiteral("no ACK"));
        QTRY_COMPARE(server.lines.count("N0CALL-7>APRS,TCPIP*::N0CALL-3 :anyone?{2"), 4);

        server.dropClients();
        QTRY_VERIFY(!page.isModeConnected());
        QTRY_VERIFY(server.logins >= 3);
        QTRY_VERIFY(page.isModeConnected());
    }

    // The bridge: "CALL text" sent as a short message to the bridge talk group goes out on APRS-IS,
    // and a message to this station on APRS-IS reaches the operator's own radio as a short message.
    void bridgesDmrShortMessages()
    {
        TempConfigHome home;
        using zl::dmr::DmrPeerManager;
        HomebrewMaster master;
        QVERIFY(master.listen());
        QList<zl::dmr::Peer> peers;
        for (const QString& id : {"2400001", "2400002"}) {
            master.addPeer(id.toUInt() * 100 + 1, "pw");
            zl::dmr::Peer p;
            p.label = id == "2400001" ? "Home" : "Away";
            p.server = QStringLiteral("127.0.0.1:%1").arg(master.port());
            p.dmrid_override = id;
            p.essid_override = "01";
            p.password = "pw";
            p.auto_connect = true;
            peers << p;
        }
        zl::dmr::savePeers(peers);
        zl::dmr::setDefaultPeerLabel("Home");
        DmrPeerManager::instance().reload();
        QTRY_VERIFY(master.isLoggedIn(240000101) && master.isLoggedIn(240000201));

        AprsIsServer server;
        useServer(server, {{"dmr_bridge_enabled", true}, {"dmr_bridge_tg", 9}});
        AprsModePage page;
        QTRY_VERIFY(page.isModeConnected());
        zl::aprs::AprsClient other;
        logIn(other, server, "N0CALL-5");
        QTRY_COMPARE(server.logins, 2);

        QVERIFY(DmrPeerManager::instance().sendSms("Away", 9, "n0call-5 hello from DMR", "etsi", false).isEmpty());
        QTRY_VERIFY(server.lines.contains("N0CALL-7>APRS,TCPIP*::N0CALL-5 :hello from DMR{1"));
        auto* history = page.findChild<QTableWidget*>("aprsHistory");
        QTRY_COMPARE(history->rowCount(), 1);
        QCOMPARE(history->item(0, 5)->text(), QString("sent (via DMR 2400002)"));

        QSignalSpy sms(&DmrPeerManager::instance(), &DmrPeerManager::smsReceived);
        other.sendTrackedMessage("N0CALL-7", "ping");
        QTRY_VERIFY(std::any_of(sms.cbegin(), sms.cend(), [](const QList<QVariant>& a) {
            return a.at(3).toUInt() == 2400001 && a.at(5).toString() == "N0CALL-5> ping";
        }));
        DmrPeerManager::instance().stopAll();
    }
};

QTEST_MAIN(TestAprsModePage)
#include "tst_aprsmodepage.moc"
