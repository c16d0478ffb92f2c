#include "HomebrewMaster.h"
#include "TempConfigHome.h"
#include "app/Config.h"
#include "dmr/DmrPeerManager.h"
#include "dmr/Peer.h"
#include "ui/DmrSmsPage.h"
#include "ui/SmsPeerRow.h"

#include <QDir>
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

class TestDmrSmsPage : public QObject {
    Q_OBJECT

    QString send(DmrSmsPage& page, const QString& to, const QString& text)
    {
        page.findChild<QLineEdit*>("smsTo")->setText(to);
        page.findChild<QLineEdit*>("smsText")->setText(text);
        page.findChild<QPushButton*>("smsSend")->click();
        return page.findChild<QLabel*>("smsStatus")->text();
    }

private slots:
    // The form's checks come before anything goes out; a message from one peer to the other
    // leaves through the master, arrives at the other, and both rows are kept in dmr_sms.json.
    void sendReceiveAndHistory()
    {
        TempConfigHome home;
        DmrSmsPage page;
        QCOMPARE(send(page, "9x", "hi"), QString("Enter a DMR ID or TG in To."));
        QCOMPARE(send(page, "2400002", "  "), QString("Enter a message."));
        QCOMPARE(send(page, "91", "hi"), QString("No DMR peer to send through — click a peer row."));

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
        DmrPeerManager::instance().reload();
        QTRY_VERIFY(master.isLoggedIn(240000101) && master.isLoggedIn(240000201));
        QTest::mouseClick(page.findChild<zl::ui::SmsPeerRow*>("smsPeer_Home"), Qt::LeftButton);
        QCOMPARE(DmrPeerManager::instance().smsPeerLabel(), QString("Home"));

        QCOMPARE(send(page, "2400002", "Grüße aus Berlin"), QString("Sending to 2400002 via Home …"));
        QTRY_COMPARE(page.findChild<QLabel*>("smsStatus")->text(), QString("Sent to 2400002 via Home"));
        auto* history = page.findChild<QTableWidget*>("smsHistory");
        QTRY_COMPARE(history->rowCount(), 2);
        QStringList rows;
        for (int r = 0; r < 2; ++r) {
            for (int c : {1, 2, 3, 4, 5, 6, 7})
                rows << history->item(r, c)->text();
        }
        QCOMPARE(rows, (QStringList{"→", "Home", "2400001", "2400002", "Grüße aus Berlin", "etsi", "sent", "←", "Away",
                                    "2400001", "2400002", "Grüße aus Berlin", "etsi_ucs2_le", ""}));
        QFile file(QFileInfo(zl::Config::instance().path()).dir().filePath("dmr_sms.json"));
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(QJsonDocument::fromJson(file.readAll()).array().at(0)["status"].toString(), QString("sent"));
        DmrSmsPage reopened;
        QCOMPARE(reopened.findChild<QTableWidget*>("smsHistory")->rowCount(), 2);
        DmrPeerManager::instance().stopAll();
    }
};

QTEST_MAIN(TestDmrSmsPage)
#include "tst_dmrsmspage.moc"
