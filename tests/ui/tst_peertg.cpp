#include "BmApiServer.h"
#include "SvxTestCa.h"
#include "TempConfigHome.h"
#include "app/Config.h"
#include "dmr/BmApiClient.h"
#include "dmr/Peer.h"
#include "ui/ApiKeyDialog.h"
#include "ui/DmrPeerRow.h"
#include "ui/PeerTgWindow.h"

#include <QApplication>
#include <QInputDialog>
#include <QJsonArray>
#include <QLabel>
#include <QPushButton>
#include <QTableWidget>
#include <QTest>
#include <QTimer>

class TestPeerTg : public QObject {
    Q_OBJECT

private slots:
    // A BrandMeister peer: its row shows the network's talkgroups (at most one request a minute
    // unless forced), and its talkgroup window drops a dynamic group.
    void brandmeisterPeer()
    {
        TempConfigHome home;
        SvxTestCa ca(QStringLiteral("Test Web CA"));
        const SvxTestCa::Issued cert = ca.issueServer(QStringLiteral("IP:127.0.0.1"));
        WebServer::trustAuthority(ca.certPem());
        BmApiServer server(cert.certPem, cert.keyPem, "k3y", 240000101);
        server.staticSubscriptions = {QJsonObject{{"talkgroup", 91}, {"slot", 1}}};
        server.dynamicSubscriptions = {QJsonObject{{"talkgroup", 262}, {"slot", 2}}};
        zl::dmr::BmApiClient::setBaseForTests(server.origin());
        zl::Config::instance().setSection("dmr",
                                          {{"bm_api_keys", QJsonArray{QJsonObject{{"name", "mine"}, {"key", "k3y"}}}}});
        zl::dmr::Peer peer;
        peer.label = "Home";
        peer.network = "Brandmeister";
        peer.server = "2001.master.brandmeister.network:62031";
        peer.dmrid_override = "2400001";
        peer.essid_override = "01";
        peer.use_api_key = true;
        peer.api_key_ref = "bm:mine";
        peer.duplex = true;
        zl::dmr::savePeers({peer});

        zl::ui::DmrPeerRow row(peer);
        row.refreshApiStatus(false);
        QCOMPARE(row.apiText(), QString()); // auto-connect off: nothing asked
        row.refreshApiStatus(true);
        QTRY_COMPARE(row.apiText(), QString("S 91 · D 262"));
        peer.auto_connect = true;
        row.setPeer(peer);
        row.refreshApiStatus(false);
        row.refreshApiStatus(false);
        QCOMPARE(row.apiText(), QString("S 91 · D 262"));
        QCOMPARE(server.requests.size(), 1);

        auto* window = new zl::ui::PeerTgWindow("Home");
        auto* status = window->findChild<QLabel*>("tgStatus");
        QTRY_COMPARE(status->text(), QString("hotspot 240000101   ·   static 1 · dynamic 1 · timed 0"));
        auto* ts2 = window->findChild<QTableWidget*>("tgTable2");
        QCOMPARE(ts2->item(0, 1)->text(), QString("dynamic"));
        ts2->setCurrentCell(0, 0);
        window->findChild<QPushButton*>("tgRemove2")->click();
        QTRY_COMPARE(status->text(), QString("hotspot 240000101   ·   static 1 · dynamic 0 · timed 0"));
        QVERIFY(server.dynamicSubscriptions.isEmpty());
        QTimer::singleShot(0, window, [] {
            auto* input = qobject_cast<QInputDialog*>(QApplication::activeModalWidget());
            QVERIFY(input && input->windowTitle() == "Add static talkgroup — TS1");
            input->setIntValue(3100);
            input->accept();
        });
        window->findChild<QPushButton*>("tgAdd1")->click();
        QTRY_COMPARE(window->findChild<QTableWidget*>("tgTable1")->rowCount(), 2);
        QCOMPARE(window->findChild<QTableWidget*>("tgTable1")->item(1, 0)->text(), QString("3100"));

        zl::dmr::savePeers({});
        window->refresh();
        QCOMPARE(status->text(), QString("⚠ Peer no longer exists in config."));
        delete window;
        zl::dmr::BmApiClient::setBaseForTests({});
    }

    void keyDialogChecks_data()
    {
        QTest::addColumn<bool>("tgif");
        QTest::addColumn<QJsonObject>("entry");
        QTest::addColumn<QString>("problem");
        QTest::newRow("bm empty") << false << QJsonObject{{"name", "a"}} << "API key is empty";
        QTest::newRow("bm ok") << false << QJsonObject{{"key", "x"}} << "";
        QTest::newRow("tgif callsign") << true << QJsonObject{{"password", "p"}} << "TGIF callsign is empty";
        QTest::newRow("tgif password") << true << QJsonObject{{"callsign", "XX0ABC"}} << "TGIF password is empty";
    }
    void keyDialogChecks()
    {
        QFETCH(bool, tgif);
        QFETCH(QJsonObject, entry);
        QFETCH(QString, problem);
        const QString got = zl::ui::ApiKeyDialog::problem(tgif, entry);
        QVERIFY2(problem.isEmpty() ? got.isEmpty() : got.startsWith(problem), qPrintable(got));
    }
};

QTEST_MAIN(TestPeerTg)
#include "tst_peertg.moc"
