#include "HomebrewMaster.h"
#include "TempConfigHome.h"
#include "app/Config.h"
#include "dmr/DmrPeerManager.h"
#include "dmr/Peer.h"
#include "ui/DmrSmsPage.h"
#include "ui/SmsPeerRow.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTableWidget>
#include <QTest>

using zl::dmr::DmrPeerManager;

namespace {

zl::dmr::Peer peer(const QString& label, const QString& dmrId, quint16 port)
{
    zl::dmr::Peer p;
    p.label = label;
    p.network = "Net";
    p.server = QStringLiteral("127.0.0.1:%1").arg(port);
    p.callsign_override = "XX0ABC";
    p.dmrid_override = dmrId;
    p.essid_override = "01";
    p.password = "pw";
    p.auto_connect = true;
    return p;
}

QString trySend(DmrSmsPage& page, const QString& to, const QString& text)
{
    page.findChild<QLineEdit*>("smsTo")->setText(to);
    page.findChild<QLineEdit*>("smsText")->setText(text);
    page.findChild<QPushButton*>("smsSend")->click();
    return page.findChild<QLabel*>("smsStatus")->text();
}

} // namespace

class TestDmrSmsPage : public QObject {
    Q_OBJECT

private slots:
    // The form's checks come before anything goes out; a message from one peer to the other
    // leaves through the master, arrives at the other, and both rows are kept in dmr_sms.json.
    void sendReceiveAndHistory()
    {
        TempConfigHome home;
        zl::dmr::savePeers({});
        DmrPeerManager::instance().reload();
        DmrSmsPage page;
        QCOMPARE(trySend(page, "9x", "hi"), QString("Enter a DMR ID or TG in To."));
        QCOMPARE(trySend(page, "2400002", "  "), QString("Enter a message."));
        QCOMPARE(trySend(page, "91", "hi"), QString("No DMR peer to send through — click a peer row."));

        HomebrewMaster master;
        QVERIFY(master.listen());
        master.addPeer(240000101, "pw");
        master.addPeer(240000201, "pw");
        zl::dmr::savePeers({peer("Home", "2400001", master.port()), peer("Away", "2400002", master.port())});
        DmrPeerManager::instance().reload();
        QTRY_VERIFY(master.isLoggedIn(240000101) && master.isLoggedIn(240000201));
        QTRY_VERIFY(page.isModeConnected());
        QTest::mouseClick(page.findChild<zl::ui::SmsPeerRow*>("smsPeer_Home"), Qt::LeftButton);
        QCOMPARE(DmrPeerManager::instance().smsPeerLabel(), QString("Home"));

        QCOMPARE(trySend(page, "2400002", "Grüße aus Berlin"), QString("Sending to 2400002 via Home …"));
        QTRY_COMPARE(page.findChild<QLabel*>("smsStatus")->text(), QString("Sent to 2400002 via Home"));
        auto* history = page.findChild<QTableWidget*>("smsHistory");
        QTRY_COMPARE(history->rowCount(), 2);
        const QStringList sent{history->item(0, 1)->text(), history->item(0, 2)->text(), history->item(0, 5)->text(),
                               history->item(0, 7)->text()};
        QCOMPARE(sent, (QStringList{"→", "Home", "Grüße aus Berlin", "sent"}));
        const QStringList heard{history->item(1, 1)->text(), history->item(1, 2)->text(), history->item(1, 3)->text(),
                                history->item(1, 5)->text(), history->item(1, 6)->text()};
        QCOMPARE(heard, (QStringList{"←", "Away", "2400001", "Grüße aus Berlin", "etsi_ucs2_le"}));

        QFile file(QFileInfo(zl::Config::instance().path()).dir().filePath("dmr_sms.json"));
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QJsonArray rows = QJsonDocument::fromJson(file.readAll()).array();
        QCOMPARE(rows.size(), 2);
        QCOMPARE(rows.at(0)["status"].toString(), QString("sent"));
        DmrSmsPage reopened;
        QCOMPARE(reopened.findChild<QTableWidget*>("smsHistory")->rowCount(), 2);
        DmrPeerManager::instance().stopAll();
    }
};

QTEST_MAIN(TestDmrSmsPage)
#include "tst_dmrsmspage.moc"
