// The peer manager against the configuration and the loopback master: which peers run, which
// restart, which say goodbye, and what the pages hear of them.
#include "HomebrewMaster.h"
#include "TempConfigHome.h"
#include "VoiceTestKit.h"
#include "dmr/DmrPeerManager.h"
#include "dmr/Peer.h"

#include <QSignalSpy>

using zl::dmr::DmrPeerClient;
using zl::dmr::DmrPeerManager;
using zl::dmr::Peer;

namespace {

constexpr quint32 kHomeId = 240000101;
constexpr quint32 kAwayId = 240000202;

Peer peer(const QString& label, const QString& dmrId, const QString& essid, quint16 port, const QString& password)
{
    Peer p;
    p.label = label;
    p.network = "Net" + label;
    p.server = QStringLiteral("127.0.0.1:%1").arg(port);
    p.callsign_override = "XX0ABC";
    p.dmrid_override = dmrId;
    p.essid_override = essid;
    p.password = password;
    p.auto_connect = true;
    return p;
}

} // namespace

class TestDmrPeerManager : public QObject {
    Q_OBJECT

private:
    TempConfigHome home;
    HomebrewMaster master;

    bool running(DmrPeerManager& manager, const QString& label, quint32 id)
    {
        return QTest::qWaitFor(
            [&] {
                DmrPeerClient* c = manager.clientFor(label);
                return c && c->state() == DmrPeerClient::Running && master.isLoggedIn(id);
            },
            10000);
    }

private slots:
    void initTestCase()
    {
        QVERIFY(master.listen());
        master.addPeer(kHomeId, "pw");
        master.addPeer(kAwayId, "pw2");
    }

    void init()
    {
        master.addPeer(kHomeId, "pw");
        master.clearLog();
        zl::dmr::savePeers({});
    }

    void onlyConnectionFieldsRestartAPeer()
    {
        LogCapture log;
        DmrPeerManager manager;
        QSignalSpy changed(&manager, &DmrPeerManager::changed);
        Peer home = peer("Home", "2400001", "01", master.port(), "pw");
        zl::dmr::savePeers({home});
        manager.reload();
        QVERIFY(log.contains("DmrPeerManager: spawned Home"));
        QVERIFY(running(manager, "Home", kHomeId));
        QVERIFY(changed.count() >= 2);
        QCOMPARE(manager.connectedCount(), 1);
        const QList<DmrPeerManager::PeerRow> rows = manager.peerTable();
        QCOMPARE(rows.size(), 1);
        QCOMPARE(rows.at(0).label, QString("Home"));
        QCOMPARE(rows.at(0).networkName, QString("NetHome"));
        QCOMPARE(rows.at(0).address, QStringLiteral("127.0.0.1:%1").arg(master.port()));
        QCOMPARE(rows.at(0).peerId, uint(kHomeId));
        QCOMPARE(rows.at(0).state, DmrPeerClient::Running);
        QCOMPARE(rows.at(0).stateText, QString("connected"));
        DmrPeerClient* client = manager.clientFor("Home");

        // The description waits for the next login.
        home.description = "new words";
        zl::dmr::savePeers({home});
        master.clearLog();
        manager.reload();
        QTest::qWait(300);
        QCOMPARE(manager.clientFor("Home"), client);
        QCOMPARE(client->state(), DmrPeerClient::Running);
        QVERIFY(master.receivedWith("RPTL").isEmpty() && master.receivedWith("RPTCL").isEmpty());
        QVERIFY(!log.contains("restart"));

        // A new password means a new login.
        master.addPeer(kHomeId, "changed");
        home.password = "changed";
        zl::dmr::savePeers({home});
        manager.reload();
        QVERIFY(log.contains("DmrPeerManager: restart Home (profile changed)"));
        QCOMPARE(manager.clientFor("Home"), client);
        QTRY_VERIFY(!master.receivedWith("RPTL").isEmpty());
        QVERIFY(running(manager, "Home", kHomeId));
        manager.stopAll();
    }

    // Each dropped client says goodbye, so the master forgets it (the goodbye itself is the client suite's).
    void disabledRenamedAndEmptiedPeersAreDropped()
    {
        LogCapture log;
        DmrPeerManager manager;
        Peer home = peer("Home", "2400001", "01", master.port(), "pw");
        Peer away = peer("Away", "2400002", "02", master.port(), "pw2");
        zl::dmr::savePeers({home, away});
        manager.reload();
        QVERIFY(running(manager, "Home", kHomeId));
        QVERIFY(running(manager, "Away", kAwayId));

        home.auto_connect = false;
        zl::dmr::savePeers({home, away});
        manager.reload();
        QVERIFY(log.contains("DmrPeerManager: dropping Home"));
        QCOMPARE(manager.clientFor("Home"), nullptr);
        QTRY_VERIFY(!master.isLoggedIn(kHomeId));

        away.label = "Far";
        zl::dmr::savePeers({home, away});
        manager.reload();
        QVERIFY(log.contains("DmrPeerManager: dropping Away"));
        QVERIFY(log.contains("DmrPeerManager: spawned Far"));
        QCOMPARE(manager.clientFor("Away"), nullptr);
        QVERIFY(running(manager, "Far", kAwayId));

        // Host emptied: skipped and dropped in the same pass.
        away.server.clear();
        zl::dmr::savePeers({home, away});
        log.clear();
        manager.reload();
        const QStringList lines = log.lines();
        const qsizetype skip =
            lines.indexOf("DmrPeerManager: skipping Far — not yet configured (host or peer-ID empty)");
        QVERIFY2(skip >= 0 && lines.indexOf("DmrPeerManager: dropping Far") > skip, qPrintable(lines.join('\n')));
        QCOMPARE(manager.clientFor("Far"), nullptr);
        QTRY_VERIFY(!master.isLoggedIn(kAwayId));
        QCOMPARE(manager.peerTable().size(), 0);
    }

    void callsAreForwardedWithLabelAndNetwork()
    {
        DmrPeerManager manager;
        Peer home = peer("Home", "2400001", "01", master.port(), "pw");
        home.rx_jitter_ms = 0;
        zl::dmr::savePeers({home});
        manager.setClientSetupForTests([](DmrPeerClient* c) { c->setPcmSinkForTests([](auto&&...) {}); });
        manager.reload();
        QVERIFY(running(manager, "Home", kHomeId));
        QSignalSpy heard(&manager, &DmrPeerManager::callHeard);
        QSignalSpy ended(&manager, &DmrPeerManager::callEnded);
        const QByteArray burst = kit::toneBurst(5000, 700);
        master.sendToPeer(kHomeId, kit::dmrd(0, 3100001, 2400009, 0x41 | 0x20 | 0x80, 0xBEEF, burst));
        master.sendToPeer(kHomeId, kit::dmrd(1, 3100001, 2400009, 0x40 | 0x10 | 0x80, 0xBEEF, burst));
        QTRY_COMPARE(heard.count(), 1);
        const QList<QVariant> call = heard.at(0);
        QCOMPARE(call.at(0).toString(), QString("Home"));
        QCOMPARE(call.at(1).toString(), QString("NetHome"));
        QCOMPARE(call.at(2).toUInt(), 3100001u);
        QCOMPARE(call.at(3).toUInt(), 2400009u);
        QCOMPARE(call.at(4).value<uchar>(), uchar(2));
        QCOMPARE(call.at(5).toUInt(), 0xBEEFu);
        QCOMPARE(call.at(6).toBool(), true);
        QTRY_COMPARE_WITH_TIMEOUT(ended.count(), 1, 4000);
        QCOMPARE(ended.at(0).at(0).toString(), QString("Home"));
        QCOMPARE(ended.at(0).at(1).toUInt(), 0xBEEFu);
        manager.stopAll();
    }

    void smsPeerAndSendChecks()
    {
        DmrPeerManager manager;
        Peer home = peer("Home", "2400001", "01", master.port(), "pw");
        Peer spare = peer("Spare", "2400003", "03", master.port(), "pw");
        spare.auto_connect = false;
        Peer noId = peer("NoId", "", "", master.port(), "pw");
        noId.server = "127.0.0.1";
        // DMR-ID 0 with an ESSID still makes a peer-ID, so the client runs.
        Peer zero = peer("Zero", "0", "05", master.port(), "pw");
        // Nobody answers there: the client never reaches Running.
        Peer mute = peer("Mute", "2400004", "04", 9, "pw");
        zl::dmr::savePeers({spare, home, noId, zero, mute});
        manager.reload();
        QCOMPARE(manager.smsPeerLabel(), QString("Home"));
        zl::dmr::setDefaultPeerLabel("Spare");
        QCOMPARE(manager.smsPeerLabel(), QString("Spare"));
        zl::Config::instance().setSection("dmr", [] {
            QJsonObject dmr = zl::Config::instance().section("dmr");
            dmr.insert("sms_peer_label", "Gone");
            return dmr;
        }());
        QCOMPARE(manager.smsPeerLabel(), QString("Spare"));
        QJsonObject dmr = zl::Config::instance().section("dmr");
        dmr.insert("sms_peer_label", "NoId");
        zl::Config::instance().setSection("dmr", dmr);
        QCOMPARE(manager.smsPeerLabel(), QString("NoId"));

        QCOMPARE(manager.sendSms("Home", 0, "hi", "utf16", true), QString("No destination DMR ID or TG."));
        QCOMPARE(manager.sendSms("Home", 91, "  \n", "utf16", true), QString("Empty message."));
        QCOMPARE(manager.sendSms("", 91, "hi", "utf16", true), QString("No DMR peer to send through."));
        QCOMPARE(manager.sendSms("Nowhere", 91, "hi", "utf16", true), QString("Peer not found."));
        QCOMPARE(manager.sendSms("Spare", 91, "hi", "utf16", true), QString("Spare is not connected."));
        // Without an ID the peer was skipped, so it is not connected either.
        QCOMPARE(manager.sendSms("NoId", 91, "hi", "utf16", true), QString("NoId is not connected."));
        QVERIFY(manager.clientFor("Zero"));
        QCOMPARE(manager.sendSms("Zero", 91, "hi", "utf16", true), QString("Peer has no DMR ID (identity)."));
        QCOMPARE(manager.sendSms("Mute", 91, "hi", "utf16", true), QString("Send failed (peer not running)."));
        dmr.remove("sms_peer_label");
        dmr.remove("default_peer_label");
        zl::Config::instance().setSection("dmr", dmr);
        manager.stopAll();
        QCOMPARE(manager.sendSms("Home", 91, "hi", "utf16", true), QString("Home is not connected."));
    }
};

QTEST_GUILESS_MAIN(TestDmrPeerManager)
#include "tst_dmrpeermanager.moc"
