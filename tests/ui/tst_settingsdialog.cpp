// The settings as a new user meets them, everything through the widgets, offscreen: the dialog
// against a loopback master, the device tabs against simulated AMBE chips (over UDP and a
// pseudo-terminal), and the DMR peer card with the public masters of assets/DMR_Hosts.txt.
#include "HomebrewMaster.h"
#include "SimulatedAmbeChip.h"
#include "TempConfigHome.h"
#include "app/Config.h"
#include "app/Identity.h"
#include "audio/AudioMixer.h"
#include "db/ServerRegistry.h"
#include "dmr/DmrPeerManager.h"
#include "hw/Dv3000Pool.h"
#include "ui/AmbeSettingsTab.h"
#include "ui/AudioChainEditor.h"
#include "ui/AudioChainTab.h"
#include "ui/AudioSettingsTab.h"
#include "ui/DmrPeerCard.h"
#include "ui/HardwareSettingsTab.h"
#include "ui/IdentityEditorDialog.h"
#include "ui/MainWindow.h"
#include "ui/SettingsDialog.h"

#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDialog>
#include <QDialogButtonBox>
#include <QDoubleSpinBox>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMessageBox>
#include <QPushButton>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QSpinBox>
#include <QTabWidget>
#include <QTableWidget>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <functional>

using zl::hw::Dv3000Pool;

namespace {

constexpr int kLoginMs = 20000;

// Runs f on the next modal window to appear (a dialog opened with exec()).
void onNextModal(std::function<void(QWidget*)> f)
{
    auto* poll = new QTimer;
    poll->setInterval(20);
    QObject::connect(poll, &QTimer::timeout, [poll, f] {
        if (QWidget* modal = QApplication::activeModalWidget()) {
            poll->stop();
            poll->deleteLater();
            f(modal);
        }
    });
    poll->start();
}

void type(QWidget* in, const QString& name, const QString& text)
{
    auto* edit = in->findChild<QLineEdit*>(name);
    QVERIFY2(edit, qPrintable(name));
    edit->clear();
    QTest::keyClicks(edit, text);
}

void click(QWidget* in, const QString& name)
{
    auto* button = in->findChild<QPushButton*>(name);
    QVERIFY2(button, qPrintable(name));
    QTest::mouseClick(button, Qt::LeftButton);
}

void selectTab(QWidget* dialog, const QString& title)
{
    auto* tabs = dialog->findChild<QTabWidget*>();
    for (int i = 0; i < tabs->count(); ++i) {
        if (tabs->tabText(i) == title)
            tabs->setCurrentIndex(i);
    }
}

QJsonObject hardware()
{
    return zl::Config::instance().section(QStringLiteral("hardware"));
}

} // namespace

class TestSettingsDialog : public QObject {
    Q_OBJECT

private:
    TempConfigHome home;
    HomebrewMaster master;
    SimulatedAmbeChip stick;
    QString stickPath;

private slots:
    void initTestCase()
    {
        QVERIFY(master.listen());
        master.addPeer(240000101, "s3cret");
        zl::Config::instance().setSection("hardware", QJsonObject{{"ambe_md380_enabled", false}});
        stickPath = stick.openPty();
        QVERIFY(!stickPath.isEmpty());
        Dv3000Pool::instance()->setPortLister([this] { return QStringList{stickPath}; });
        Dv3000Pool::instance()->setProbeInterval(50);
    }

    void cleanupTestCase() { zl::dmr::DmrPeerManager::instance().stopAll(); }

    // A server typed into the AMBE tab is probed once applied, and shown ready; unticked, it goes.
    void ambeServerFromTheTab()
    {
        SimulatedAmbeChip server;
        const quint16 port = server.listenUdp();
        AmbeSettingsTab tab;
        QSignalSpy dirtied(&tab, &AmbeSettingsTab::dirtied);
        type(&tab, "ambeServerHost", "127.0.0.1");
        type(&tab, "ambeServerPort", "0"); // refused
        QTest::mouseClick(tab.findChild<QPushButton*>("addAmbeServer"), Qt::LeftButton);
        QCOMPARE(dirtied.count(), 0);
        type(&tab, "ambeServerPort", QString::number(port));
        QTest::mouseClick(tab.findChild<QPushButton*>("addAmbeServer"), Qt::LeftButton);
        QCOMPARE(dirtied.count(), 1);
        tab.commit();

        QCOMPARE(hardware().value("ambe_servers").toArray(),
                 (QJsonArray{QJsonObject{{"host", "127.0.0.1"}, {"port", port}, {"enabled", true}}}));
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

    // A peer's receive chain made in the EQ / LADSPA tab, with a plug-in from swh-plugins, is
    // what the mixer loads for that peer; another peer of the mode keeps the default.
    void chainTabStoresAPeersChain()
    {
        AudioChainTab tab;
        tab.show();
        auto* mode = tab.findChild<QComboBox*>("chainMode");
        mode->setCurrentIndex(mode->findText("M17"));
        tab.findChild<QComboBox*>("chainPeer")->setEditText("M17-XOR C");
        auto* rx = tab.findChild<AudioChainEditor*>("rxChain");
        rx->findChild<QCheckBox*>("chainEnabled")->setChecked(true);
        rx->findChild<QDoubleSpinBox*>("chainGain")->setValue(-6);
        auto* add = rx->findChild<QComboBox*>("chainAddPlugin");
        add->setCurrentIndex(add->findData("amp"));
        click(rx, "chainAdd");
        tab.commit();
        const zl::audio::AudioChainConfig own = zl::audio::loadChainConfig("m17", "M17-XOR C", "chain_rx");
        QVERIFY(own.enabled && own.gainDb == -6.0f && own.ladspa.size() == 1 && own.ladspa[0].label == "amp");
        QVERIFY(!zl::audio::loadChainConfig("m17", "M17-XOR A", "chain_rx").enabled);
    }

    // Picking a public master fills network and address; duplex proposes the band's offset.
    void peerCardMasterAndOffset_data()
    {
        QTest::addColumn<bool>("duplex");
        QTest::addColumn<uint>("rx");
        QTest::addColumn<uint>("tx");
        QTest::newRow("2m repeater") << true << 145600000u << 145000000u;
        QTest::newRow("70cm repeater") << true << 439000000u << 437000000u;
        QTest::newRow("no band") << true << 50500000u << 50500000u;
        QTest::newRow("simplex") << false << 439000000u << 439000000u;
    }

    void peerCardMasterAndOffset()
    {
        QFETCH(bool, duplex);
        QFETCH(uint, rx);
        QFETCH(uint, tx);
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
        QCOMPARE(card.currentPeer().network + " " + card.currentPeer().server,
                 QString("Brandmeister 2001.master.brandmeister.network:62031"));

        card.findChild<QCheckBox*>("peerDuplex")->setChecked(duplex);
        type(&card, "peerRxFreq", QString::number(rx));
        QCOMPARE(card.findChild<QLineEdit*>("peerTxFreq")->text(), QString::number(tx));
        QCOMPARE(card.currentPeer().tx_freq, tx);
    }

    // An APRS identity takes its SSID and symbol from the customary lists; "Custom…" frees the symbol.
    void aprsIdentityChoices()
    {
        zl::Identity start;
        start.callsign = "XX0ABC-7";
        start.id_field = "/v";
        IdentityEditorDialog editor("aprs", start);
        auto* ssid = editor.findChild<QComboBox*>("aprsSsid");
        auto* symbols = editor.findChild<QComboBox*>("aprsSymbol");
        auto* symbol = editor.findChild<QLineEdit*>("identityField2");
        QCOMPARE(ssid->currentData().toString(), QString("7"));
        QCOMPARE(symbols->currentData().toString(), QString("/v"));
        QVERIFY(symbol->isReadOnly());
        ssid->setCurrentIndex(ssid->findData("9"));
        emit ssid->activated(ssid->currentIndex());
        symbols->setCurrentIndex(symbols->findData("/>"));
        emit symbols->activated(symbols->currentIndex());
        QCOMPARE(editor.identity().callsign + " " + editor.identity().id_field, QString("XX0ABC-9 />"));
        symbols->setCurrentIndex(symbols->count() - 1);
        emit symbols->activated(symbols->currentIndex());
        QVERIFY(!symbol->isReadOnly());
    }

    // A new user: an identity, then a peer that uses it, and the peer logs in.
    void newUserSetsUpADmrPeer()
    {
        MainWindow w;
        w.show();
        w.findChild<QAction*>("settingsAction")->trigger();
        auto* dialog = w.findChild<SettingsDialog*>();
        QVERIFY(dialog && dialog->isVisible());

        // General: a DMR identity.
        selectTab(dialog, "General");
        auto* mode = dialog->findChild<QComboBox*>("identityMode");
        mode->setCurrentIndex(mode->findData("dmr"));
        onNextModal([](QWidget* editor) {
            QCOMPARE(editor->windowTitle(), QString("DMR — Identity"));
            type(editor, "identityField0", "Home");
            type(editor, "identityField1", "xx0abc");
            type(editor, "identityField2", "2400001");
            type(editor, "identityField3", "01");
            static_cast<QDialog*>(editor)->accept();
        });
        click(dialog, "identityAdd");
        QTRY_COMPARE(dialog->findChild<QListWidget*>("identityList")->count(), 1);
        QCOMPARE(dialog->windowTitle(), QString("zephyrlake · Settings  *"));

        // DMR: a peer on the loopback master with that identity.
        selectTab(dialog, "DMR");
        click(dialog, "addDmrPeer");
        type(dialog, "peerLabel", "Home");
        dialog->findChild<QComboBox*>("peerIdentity")->setCurrentIndex(1);
        QCOMPARE(dialog->findChild<QLineEdit*>("peerDmrId")->text(), QString("2400001"));
        auto* warning = dialog->findChild<QLabel*>("peerServerWarning");
        type(dialog, "peerServer", "127.0.0.1:0");
        QCOMPARE(warning->text(), QString("A port is a number from 1 to 65535."));
        type(dialog, "peerServer", QStringLiteral("127.0.0.1:%1").arg(master.port()));
        QVERIFY(warning->text().isEmpty());
        type(dialog, "peerNetwork", "Loop");
        type(dialog, "peerPassword", "s3cret");
        type(dialog, "peerTg", "91");

        // OK on the open card saves and goes back to the list; OK again closes.
        auto* ok = dialog->findChild<QDialogButtonBox*>()->button(QDialogButtonBox::Ok);
        QTest::mouseClick(ok, Qt::LeftButton);
        QCOMPARE(dialog->findChild<QListWidget*>("dmrPeersList")->count(), 1);
        QTest::mouseClick(ok, Qt::LeftButton);
        QVERIFY(!dialog->isVisible());

        QTRY_VERIFY_WITH_TIMEOUT(master.isLoggedIn(240000101), kLoginMs);
        QTRY_VERIFY(w.findChild<QWidget*>("peerRow_Home")->findChild<QLabel*>()->styleSheet().contains("#39c34a"));
    }

    // Each mode's own tab, set through its widgets: Apply writes the keys its page reads, and
    // only those the user touched.
    // Steps: "name=text" types into a field, "click:name" clicks, "warn:name" expects its warning.
    // Expected: "section/key/...=JSON", "$user" for the id of the server just added, nothing for absent.
    void modeTabsStoreWhatThePagesRead_data()
    {
        QTest::addColumn<QString>("title");
        QTest::addColumn<QString>("steps");
        QTest::addColumn<QString>("expected");
        const QString server = "click:addServer|serverHost=127.0.0.1|serverPort=";
        QTest::newRow("M17") << "M17" << server + "17000|module=c|click:enabled"
                             << R"(m17/servers/$user/module="C"|m17/servers/$user/enabled=true)";
        QTest::newRow("YSF") << "YSF" << server + "42000|rx_dgid=10|tx_dgid=20"
                             << "ysf/servers/$user/rx_dgid=10|ysf/servers/$user/tx_dgid=20|ysf/servers/$user/enabled=";
        QTest::newRow("NXDN") << "NXDN" << server + "41400|tg=65000|ran=7|callsign=xx0nx|radio_id=65530|warn:radio_id"
                              << R"(nxdn/servers/$user/tg=65000|nxdn/servers/$user/ran=7|)"
                                 R"(nxdn/servers/$user/callsign="xx0nx"|nxdn/servers/$user/radio_id=65530)";
        QTest::newRow("POCSAG") << "POCSAG"
                                << "tx_name=XX0TX|auth_key=k3y|username=xx0tx|password=pw|rics=123x|warn:rics|"
                                   "rics=12345, 99|click:enabled"
                                << R"(pocsag/tx_name="XX0TX"|pocsag/auth_key="k3y"|pocsag/password="pw"|)"
                                   R"(pocsag/rics="12345, 99"|pocsag/enabled=true|pocsag/tx_group=)";
        QTest::newRow("Echolink") << "Echolink"
                                  << "click:accept_incoming|callsign=XX0_EL|warn:callsign|callsign=XX0EL|"
                                     "password=s3cret|description=Somewhere|max_connections=3|block_list=XX0BAD"
                                  << R"(echolink/accept_incoming=true|echolink/callsign="XX0EL"|)"
                                     R"(echolink/password="s3cret"|echolink/description="Somewhere"|)"
                                     R"(echolink/max_connections=3|echolink/block_list="XX0BAD"|echolink/enabled=)";
        QTest::newRow("AllStar") << "AllStar"
                                 << "click:addEntry|name=Hub|host=bad host|warn:host|host=127.0.0.1|node=41234|"
                                    "username=zl|password=pw|click:enabled"
                                 << R"(allstar/servers/0/host="127.0.0.1"|allstar/servers/0/node="41234"|)"
                                    R"(allstar/servers/0/password="pw"|allstar/servers/0/enabled=true|)"
                                    R"(allstar/servers/0/port=)";
        QTest::newRow("SvxLink")
            << "SvxLink"
            << "click:addEntry|host=127.0.0.1|port=5301|auth_key=key|protocol=v3|tg=240|"
               "monitor_tgs=240, 2402|click:enabled"
            << R"(svxlink/servers/127.0.0.1:5301/auth_key="key"|)"
               R"(svxlink/servers/127.0.0.1:5301/protocol="v3"|svxlink/servers/127.0.0.1:5301/tg=240|)"
               R"(svxlink/servers/127.0.0.1:5301/monitor_tgs="240, 2402"|)"
               R"(svxlink/servers/127.0.0.1:5301/enabled=true|svxlink/servers/127.0.0.1:5301/hang_time=)";
        QTest::newRow("APRS") << "APRS"
                              << "callsign_ssid=XX0AP-9|server_host=127.0.0.1|server_port=14581|click:beacon_enabled|"
                                 "lat=59.5|lon=18.25"
                              << R"(aprs/callsign_ssid="XX0AP-9"|aprs/server_host="127.0.0.1"|aprs/server_port=14581|)"
                                 R"(aprs/beacon_enabled=true|aprs/lat=59.5|aprs/lon=18.25|aprs/filter=)";
    }

    void modeTabsStoreWhatThePagesRead()
    {
        QFETCH(QString, title);
        QFETCH(QString, steps);
        QFETCH(QString, expected);
        MainWindow w;
        SettingsDialog* dialog = SettingsDialog::openOnTab(&w, "");
        selectTab(dialog, title);
        QWidget* tab = dialog->findChild<QTabWidget*>()->currentWidget();
        for (const QString& step : steps.split('|')) {
            const QString name = step.section('=', 0, 0).section(':', -1);
            const QString value = step.section('=', 1);
            if (step.startsWith("warn:")) {
                auto* warning = tab->findChild<QLabel*>(name + "Warning");
                QVERIFY2(warning && !warning->text().isEmpty(), qPrintable(step));
            } else if (step.startsWith("click:")) {
                auto* button = tab->findChild<QAbstractButton*>(name);
                QVERIFY2(button, qPrintable(step));
                QTest::mouseClick(button, Qt::LeftButton, {}, QPoint(4, button->height() / 2));
            } else if (auto* edit = tab->findChild<QLineEdit*>(name)) {
                edit->clear();
                QTest::keyClicks(edit, value);
            } else if (auto* spin = tab->findChild<QAbstractSpinBox*>(name)) {
                QTest::keyClick(spin, Qt::Key_A, Qt::ControlModifier);
                QTest::keyClicks(spin, value);
            } else {
                auto* combo = tab->findChild<QComboBox*>(name);
                QVERIFY2(combo, qPrintable(step));
                QTest::keyClicks(combo, value);
            }
        }
        // Keys and passwords are masked.
        for (auto* edit : tab->findChildren<QLineEdit*>(
                 QRegularExpression("password|auth_key", QRegularExpression::CaseInsensitiveOption)))
            QCOMPARE(edit->echoMode(), QLineEdit::Password);
        QVERIFY(dialog->isDirty());
        click(dialog, "applyButton");
        QVERIFY(!dialog->isDirty());

        for (const QString& each : expected.split('|')) {
            QStringList path = each.section('=', 0, 0).split('/');
            QJsonValue at = zl::Config::instance().section(path.takeFirst());
            const QString mode = each.section('/', 0, 0).toUpper();
            for (const QString& step : std::as_const(path)) {
                if (step == "$user")
                    at = at.toObject().value(zl::ServerRegistry(mode).user().last().id);
                else if (at.isArray())
                    at = at.toArray().at(step.toInt());
                else
                    at = at.toObject().value(step);
            }
            const QString want = each.section('=', 1);
            const QJsonValue wanted = want.isEmpty()
                                          ? QJsonValue(QJsonValue::Undefined)
                                          : QJsonDocument::fromJson(("[" + want + "]").toUtf8()).array().at(0);
            QVERIFY2(at == wanted, qPrintable(each + " but is " + at.toVariant().toString()));
        }
        delete dialog;
    }

    // The log settings wait for Apply; the PTT key does not, and Esc cannot be it.
    void logWaitsForApplyPttDoesNot()
    {
        MainWindow w;
        SettingsDialog* dialog = SettingsDialog::openOnTab(&w, "");
        selectTab(dialog, "General");
        QTest::mouseClick(dialog->findChild<QCheckBox*>("logEnabled"), Qt::LeftButton);
        QVERIFY(zl::Config::instance().section("general").value("log_enabled").toBool(true));
        auto* key = dialog->findChild<QPushButton*>("pttKeyButton");
        QTest::mouseClick(key, Qt::LeftButton);
        QTest::keyClick(key, Qt::Key_F7);
        QCOMPARE(zl::Config::instance().section("general").value("ptt_key").toInt(), int(Qt::Key_F7));
        QTest::mouseClick(key, Qt::LeftButton);
        QTest::keyClick(key, Qt::Key_Escape);
        QCOMPARE(zl::Config::instance().section("general").value("ptt_key").toInt(), int(Qt::Key_F7));
        QCOMPARE(key->text(), QString("F7"));
        click(dialog, "applyButton");
        QCOMPARE(zl::Config::instance().section("general").value("log_enabled").toBool(true), false);
        QVERIFY(!dialog->isDirty());
        delete dialog;
    }

    // Closing with unsaved changes asks; Cancel stays, Discard drops, Save keeps.
    void closingWithChangesAsks_data()
    {
        QTest::addColumn<int>("answer");
        QTest::addColumn<bool>("staysOpen");
        QTest::addColumn<int>("identities");
        QTest::newRow("cancel") << int(QMessageBox::Cancel) << true << 1;
        QTest::newRow("discard") << int(QMessageBox::Discard) << false << 1;
        QTest::newRow("save") << int(QMessageBox::Save) << false << 2;
    }

    void closingWithChangesAsks()
    {
        QFETCH(int, answer);
        QFETCH(bool, staysOpen);
        QFETCH(int, identities);
        MainWindow w;
        SettingsDialog* dialog = SettingsDialog::openOnTab(&w, "");
        selectTab(dialog, "General");
        auto* mode = dialog->findChild<QComboBox*>("identityMode");
        mode->setCurrentIndex(mode->findData("ysf"));
        zl::setIdentities("ysf", {zl::Identity{"One", "XX0ONE"}});
        onNextModal([](QWidget* editor) {
            type(editor, "identityField0", "Two");
            type(editor, "identityField1", "XX0TWO");
            static_cast<QDialog*>(editor)->accept();
        });
        click(dialog, "identityAdd");
        QTRY_VERIFY(dialog->isDirty());
        onNextModal([answer](QWidget* box) {
            QCOMPARE(box->windowTitle(), QString("Unsaved changes"));
            QTest::mouseClick(static_cast<QMessageBox*>(box)->button(QMessageBox::StandardButton(answer)),
                              Qt::LeftButton);
        });
        // Closing the main window asks too; Cancel keeps the program running.
        w.show();
        w.close();
        QTRY_COMPARE(dialog->isVisible(), staysOpen);
        QCOMPARE(w.isVisible(), staysOpen);
        QCOMPARE(zl::identities("ysf").size(), identities);
        delete dialog;
    }
};

QTEST_MAIN(TestSettingsDialog)
#include "tst_settingsdialog.moc"
