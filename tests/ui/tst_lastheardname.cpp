// A DMR call from a loopback master shows the caller's callsign and name from the user list.
#include "HomebrewMaster.h"
#include "TempConfigHome.h"
#include "VoiceTestKit.h"
#include "app/Config.h"
#include "db/DirectoryCache.h"
#include "db/UserDb.h"
#include "dmr/DmrPeerManager.h"
#include "ui/MainWindow.h"

#include <QApplication>
#include <QDateTime>
#include <QFile>
#include <QJsonArray>
#include <QLabel>
#include <QTableWidget>
#include <QTest>

class TestLastHeardName : public QObject {
    Q_OBJECT

private:
    TempConfigHome home;
    HomebrewMaster master;

private slots:
    void callerIsNamedFromTheUserList()
    {
        // A user list fetched an hour ago: read at start, not fetched again.
        for (const auto& [path, data] :
             {std::pair{zl::UserDb::dmrPath(), QByteArray("2621234\tDL1ABC\tHans\n")},
              std::pair{zl::UserDb::dmrPath() + ".stamp",
                        QDateTime::currentDateTime().addSecs(-3600).toString(Qt::ISODate).toUtf8()}}) {
            QFile file(path);
            QVERIFY(file.open(QIODevice::WriteOnly));
            file.write(data);
        }
        QVERIFY(master.listen());
        master.addPeer(262123401, "pw");
        zl::Config::instance().setSection(
            "dmr", QJsonObject{{"peers", QJsonArray{QJsonObject{{"label", "A"},
                                                                {"callsign_override", "XX0ABC"},
                                                                {"dmrid_override", "2621234"},
                                                                {"essid_override", "01"},
                                                                {"network", "NetA"},
                                                                {"server", QString("127.0.0.1:%1").arg(master.port())},
                                                                {"password", "pw"},
                                                                {"auto_connect", true}}}}});
        MainWindow w;
        QTRY_COMPARE(zl::UserDb::instance()->userCount(), 1);
        QTRY_COMPARE_WITH_TIMEOUT(w.findChild<QLabel*>("dmrStatus")->text(), QString("1/1 peer connected"), 20000);
        master.sendToPeer(262123401, kit::dmrd(0, 2621234, 2621, 0xA1, 0x5eed0002, QByteArray(33, '\0')));
        auto* table = w.findChild<QTableWidget*>("lastHeard");
        QTRY_COMPARE_WITH_TIMEOUT(table->rowCount(), 1, 5000);
        QCOMPARE(table->item(0, 1)->text(), QString("DL1ABC"));
        QCOMPARE(table->item(0, 1)->toolTip(), QString("Hans — DMR ID 2621234"));
        zl::dmr::DmrPeerManager::instance().stopAll();
    }
};

QTEST_MAIN(TestLastHeardName)
#include "tst_lastheardname.moc"
