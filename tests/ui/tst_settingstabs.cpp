// The device tabs of the settings and the DMR peer card, driven through their widgets
// against a simulated AMBE chip (over UDP and a pseudo-terminal).
#include "SimulatedAmbeChip.h"
#include "TempConfigHome.h"
#include "app/Config.h"
#include "audio/AudioMixer.h"
#include "hw/Dv3000Pool.h"
#include "ui/AmbeSettingsTab.h"
#include "ui/AudioSettingsTab.h"
#include "ui/DmrPeerCard.h"
#include "ui/HardwareSettingsTab.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFile>
#include <QJsonArray>
#include <QJsonObject>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QSignalSpy>
#include <QSpinBox>
#include <QTableWidget>
#include <QTemporaryDir>
#include <QTest>

using zl::hw::Dv3000Pool;

namespace {

void type(QWidget* in, const QString& name, const QString& text)
{
    auto* edit = in->findChild<QLineEdit*>(name);
    QVERIFY2(edit, qPrintable(name));
    edit->selectAll();
    QTest::keyClicks(edit, text);
}

QJsonObject hardware()
{
    return zl::Config::instance().section(QStringLiteral("hardware"));
}

} // namespace

class TestSettingsTabs : public QObject {
    Q_OBJECT

private:
    TempConfigHome home;
    SimulatedAmbeChip stick;
    QString stickPath;

private slots:
    void initTestCase()
    {
        stickPath = stick.openPty();
        QVERIFY(!stickPath.isEmpty());
        zl::Config::instance().setSection("hardware", QJsonObject{{"ambe_md380_enabled", false}});
        Dv3000Pool::instance()->setPortLister([this] { return QStringList{stickPath}; });
        Dv3000Pool::instance()->setProbeInterval(50);
    }

    // A server typed into the AMBE tab is probed once applied, and shown ready; unticked, it goes.
    void ambeServerFromTheTab()
    {
        SimulatedAmbeChip server;
        const quint16 port = server.listenUdp();
        AmbeSettingsTab tab;
        QSignalSpy dirtied(&tab, &AmbeSettingsTab::dirtied);
        type(&tab, "ambeServerHost", "127.0.0.1");
        type(&tab, "ambeServerPort", "0");
        QCOMPARE(tab.findChild<QLabel*>("ambeServerPortWarning")->text(),
                 QString("A port is a number from 1 to 65535."));
        QTest::mouseClick(tab.findChild<QPushButton*>("addAmbeServer"), Qt::LeftButton);
        QCOMPARE(dirtied.count(), 0);
        type(&tab, "ambeServerPort", QString::number(port));
        QTest::mouseClick(tab.findChild<QPushButton*>("addAmbeServer"), Qt::LeftButton);
        QCOMPARE(dirtied.count(), 1);
        tab.commit();

        const QJsonArray servers = hardware().value("ambe_servers").toArray();
        QCOMPARE(servers.size(), 1);
        QCOMPARE(servers.at(0).toObject().value("host").toString(), QString("127.0.0.1"));
        QCOMPARE(servers.at(0).toObject().value("port").toInt(), int(port));
        const QString where = QStringLiteral("udp://127.0.0.1:%1").arg(port);
        auto* chips = tab.findChild<QTableWidget*>("ambeChips");
        const auto stateOf = [chips](const QString& location) {
            for (int row = 0; row < chips->rowCount(); ++row) {
                if (chips->item(row, 0)->text() == location)
                    return chips->item(row, 1)->text();
            }
            return QString();
        };
        QTRY_COMPARE(stateOf(where), QString("ready — AMBE3000R"));

        tab.findChild<QListWidget*>("ambeServers")->item(0)->setCheckState(Qt::Unchecked);
        tab.commit();
        QVERIFY(!hardware().value("ambe_servers").toArray().at(0).toObject().value("enabled").toBool());
        QTRY_COMPARE(stateOf(where), QString());
    }

    // The firmware check says what is wrong with the images the user points at.
    void firmwareCheck_data()
    {
        QTest::addColumn<qint64>("fwSize");
        QTest::addColumn<qint64>("ramSize");
        QTest::addColumn<QString>("status");
        QTest::newRow("missing") << qint64(-1) << qint64(-1) << "⚠ md380fw.img is missing; md380ram.img is missing";
        QTest::newRow("empty firmware") << qint64(0) << qint64(0x20000) << "⚠ md380fw.img is empty";
        QTest::newRow("firmware too large")
            << qint64(0xF4001) << qint64(0x20000)
            << "⚠ md380fw.img is 999425 bytes, more than the 999424 of firmware d02.032";
        QTest::newRow("ram too large") << qint64(0xF4000) << qint64(0x20001)
                                       << "⚠ md380ram.img is 131073 bytes, more than the 131072 of firmware d02.032";
        QTest::newRow("largest allowed") << qint64(0xF4000) << qint64(0x20000) << "✓ both images found in %1";
    }

    void firmwareCheck()
    {
        QFETCH(qint64, fwSize);
        QFETCH(qint64, ramSize);
        QFETCH(QString, status);
        QTemporaryDir folder;
        for (const auto& [name, size] : {std::pair{"/md380fw.img", fwSize}, std::pair{"/md380ram.img", ramSize}}) {
            if (size < 0)
                continue;
            QFile file(folder.path() + QLatin1String(name));
            QVERIFY(file.open(QIODevice::WriteOnly));
            file.write(QByteArray(size, '\x5a'));
        }
        AmbeSettingsTab tab;
        type(&tab, "md380FirmwareDir", folder.path());
        QCOMPARE(tab.findChild<QLabel*>("md380FirmwareStatus")->text(), status.replace("%1", folder.path()));
    }

    // An unticked port is written to the disabled list, and the stick on it is let go.
    void untickedPortIsLeftAlone()
    {
        Dv3000Pool* pool = Dv3000Pool::instance();
        pool->rescan();
        HardwareSettingsTab tab;
        auto* ports = tab.findChild<QTableWidget*>("serialPorts");
        QCOMPARE(ports->rowCount(), 1);
        QCOMPARE(ports->item(0, 1)->text(), stickPath);
        QTRY_COMPARE(ports->item(0, 2)->text(), QString("AMBE3000R"));
        QSignalSpy dirtied(&tab, &HardwareSettingsTab::dirtied);
        ports->item(0, 0)->setCheckState(Qt::Unchecked);
        QCOMPARE(dirtied.count(), 1);
        tab.commit();
        QCOMPARE(hardware().value("ambe_disabled_ports").toArray(), QJsonArray{stickPath});
        QTRY_COMPARE(pool->chipCount(), 0);
        QCOMPARE(ports->item(0, 0)->checkState(), Qt::Unchecked);
        QCOMPARE(ports->item(0, 2)->text(), QString("not in use"));
    }

    void raspberryPiIsRecognised()
    {
        QCOMPARE(HardwareSettingsTab::raspberryPiModel("processor\t: 0\nHardware\t: BCM2835\n"
                                                       "Model\t\t: Raspberry Pi 4 Model B Rev 1.4\n"),
                 QString("Raspberry Pi 4 Model B Rev 1.4"));
        QCOMPARE(HardwareSettingsTab::raspberryPiModel("model name\t: Intel(R) Core(TM) i5\n"), QString());
    }

    // The audio tab's levels reach the mixer when the dialog announces the change.
    void audioLevelsReachTheMixer()
    {
        AudioSettingsTab tab;
        tab.findChild<QSpinBox*>("rxJitterMs")->setValue(360);
        tab.commit();
        emit zl::Config::instance().configChanged();
        QCOMPARE(zl::audio::AudioMixer::instance().rxJitterDepthMs(), 360);
        QCOMPARE(zl::Config::instance().section("audio").value("rx_jitter_ms").toInt(), 360);
    }

    // Picking a public master fills network and address; duplex proposes the band's offset.
    void peerCardMasterAndOffset_data()
    {
        QTest::addColumn<bool>("duplex");
        QTest::addColumn<QString>("rx");
        QTest::addColumn<QString>("tx");
        QTest::newRow("2m repeater") << true << "145600000"
                                     << "145000000";
        QTest::newRow("70cm repeater") << true << "439000000"
                                       << "437000000";
        QTest::newRow("no band") << true << "50500000"
                                 << "50500000";
        QTest::newRow("simplex") << false << "439000000"
                                 << "439000000";
    }

    void peerCardMasterAndOffset()
    {
        QFETCH(bool, duplex);
        QFETCH(QString, rx);
        QFETCH(QString, tx);
        DmrPeerCard card;
        card.setPeer(zl::dmr::Peer{}, {});
        auto* group = card.findChild<QComboBox*>("peerMasterGroup");
        auto* master = card.findChild<QComboBox*>("peerMaster");
        group->setCurrentIndex(group->findText("Brandmeister"));
        emit group->activated(group->currentIndex());
        const int europe = master->findText("Europe (2001)");
        QVERIFY(europe > 0);
        master->setCurrentIndex(europe);
        emit master->activated(europe);
        QCOMPARE(card.currentPeer().network, QString("Brandmeister"));
        QCOMPARE(card.currentPeer().server, QString("2001.master.brandmeister.network:62031"));

        card.findChild<QCheckBox*>("peerDuplex")->setChecked(duplex);
        type(&card, "peerRxFreq", rx);
        QCOMPARE(card.findChild<QLineEdit*>("peerTxFreq")->text(), tx);
        QCOMPARE(card.currentPeer().tx_freq, tx.toUInt());
    }
};

QTEST_MAIN(TestSettingsTabs)
#include "tst_settingstabs.moc"
