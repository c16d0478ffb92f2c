// The settings dialog as a new user meets it: everything through the widgets, offscreen.
#include "HomebrewMaster.h"
#include "M17Reflector.h"
#include "TempConfigHome.h"
#include "app/Config.h"
#include "app/Identity.h"
#include "db/ServerRegistry.h"
#include "dmr/DmrPeerManager.h"
#include "ui/MainWindow.h"
#include "ui/SettingsDialog.h"

#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDialog>
#include <QDialogButtonBox>
#include <QJsonArray>
#include <QJsonDocument>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMessageBox>
#include <QPushButton>
#include <QRegularExpression>
#include <QSpinBox>
#include <QTabWidget>
#include <QTest>
#include <QTimer>

#include <functional>

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

} // namespace

class TestSettingsDialog : public QObject {
    Q_OBJECT

private:
    TempConfigHome home;
    HomebrewMaster master;

private slots:
    void initTestCase()
    {
        QVERIFY(master.listen());
        master.addPeer(240000101, "s3cret");
        zl::Config::instance().setSection("hardware", QJsonObject{{"ambe_md380_enabled", false}});
    }

    void cleanupTestCase() { zl::dmr::DmrPeerManager::instance().stopAll(); }

    // A new user: an identity, then a peer that uses it, and the peer logs in.
    void newUserSetsUpADmrPeer()
    {
        MainWindow w;
        w.show();
        w.findChild<QAction*>("settingsAction")->trigger();
        auto* dialog = w.findChild<SettingsDialog*>();
        QVERIFY(dialog && dialog->isVisible());
        QCOMPARE(dialog->windowTitle(), QString("zephyrlake · Settings"));

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
        auto* identity = dialog->findChild<QComboBox*>("peerIdentity");
        identity->setCurrentIndex(1);
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
        QTest::mouseClick(dialog->findChild<QDialogButtonBox*>()->button(QDialogButtonBox::Ok), Qt::LeftButton);
        QVERIFY(dialog->isVisible());
        QCOMPARE(dialog->findChild<QListWidget*>("dmrPeersList")->count(), 1);
        QTest::mouseClick(dialog->findChild<QDialogButtonBox*>()->button(QDialogButtonBox::Ok), Qt::LeftButton);
        QVERIFY(!dialog->isVisible());

        QTRY_VERIFY_WITH_TIMEOUT(master.isLoggedIn(240000101), kLoginMs);
        auto* row = w.findChild<QWidget*>("peerRow_Home");
        QVERIFY(row);
        QTRY_VERIFY(row->findChild<QLabel*>()->styleSheet().contains("#39c34a"));
    }

    // The same for M17: an identity, a reflector of the user's own, and the row links.
    void newUserAddsAnM17Reflector()
    {
        M17Reflector reflector;
        MainWindow w;
        w.show();
        SettingsDialog* dialog = SettingsDialog::openOnTab(&w, "m17");
        selectTab(dialog, "General");
        auto* mode = dialog->findChild<QComboBox*>("identityMode");
        mode->setCurrentIndex(mode->findData("m17"));
        onNextModal([](QWidget* editor) {
            type(editor, "identityField0", "Home");
            type(editor, "identityField1", "xx0abc");
            static_cast<QDialog*>(editor)->accept();
        });
        click(dialog, "identityAdd");
        QTRY_COMPARE(dialog->findChild<QListWidget*>("identityList")->count(), 1);
        selectTab(dialog, "M17");
        auto* tab = dialog->findChild<QWidget*>("modeTab_m17");
        click(tab, "addServer");
        type(tab, "serverName", "Loop");
        type(tab, "serverHost", "127.0.0.1");
        type(tab, "serverPort", QString::number(reflector.port()));
        type(tab, "module", "c");
        auto* ok = dialog->findChild<QDialogButtonBox*>()->button(QDialogButtonBox::Ok);
        QTest::mouseClick(ok, Qt::LeftButton);
        QVERIFY(dialog->isVisible());
        QTest::mouseClick(ok, Qt::LeftButton);
        QVERIFY(!dialog->isVisible());

        // The reflector is a row of the M17 page; switching it on links.
        w.selectMode("M17");
        QWidget* row = nullptr;
        QTRY_VERIFY((row = w.findChildren<QWidget*>(QRegularExpression("^m17Row_")).value(0)));
        QTest::mouseClick(row->findChild<QCheckBox*>(), Qt::LeftButton);
        QTRY_COMPARE_WITH_TIMEOUT(reflector.clients().size(), 1, kLoginMs);
        QCOMPARE(reflector.clients().first().module, 'C');
    }

    // Each mode's own tab, set through its widgets: Apply writes the keys its page reads, and
    // only those the user touched.
    void modeTabsStoreWhatThePagesRead_data()
    {
        QTest::addColumn<QString>("title");
        QTest::addColumn<QStringList>("steps");
        QTest::addColumn<QStringList>("expected");
        const QString server = "click:addServer|serverHost=127.0.0.1|serverPort=";
        QTest::newRow("M17") << "M17" << (server + "17000|module=c|click:enabled").split('|')
                             << QStringList{"m17/servers/$user/module=\"C\"", "m17/servers/$user/enabled=true"};
        QTest::newRow("YSF") << "YSF" << (server + "42000|rx_dgid=10|tx_dgid=20").split('|')
                             << QStringList{"ysf/servers/$user/rx_dgid=10", "ysf/servers/$user/tx_dgid=20",
                                            "ysf/servers/$user/enabled="};
        QTest::newRow("NXDN")
            << "NXDN" << (server + "41400|tg=65000|ran=7|callsign=xx0nx|radio_id=65530|warn:radio_id").split('|')
            << QStringList{"nxdn/servers/$user/tg=65000", "nxdn/servers/$user/ran=7",
                           "nxdn/servers/$user/callsign=\"xx0nx\"", "nxdn/servers/$user/radio_id=65530"};
        QTest::newRow("POCSAG") << "POCSAG"
                                << QStringList{"tx_name=XX0TX", "auth_key=k3y", "username=xx0tx", "password=pw",
                                               "rics=123x",     "warn:rics",    "rics=12345, 99", "click:enabled"}
                                << QStringList{"pocsag/tx_name=\"XX0TX\"", "pocsag/auth_key=\"k3y\"",
                                               "pocsag/password=\"pw\"",   "pocsag/rics=\"12345, 99\"",
                                               "pocsag/enabled=true",      "pocsag/tx_group="};
        QTest::newRow("Echolink") << "Echolink"
                                  << QStringList{"click:accept_incoming", "callsign=XX0_EL",  "warn:callsign",
                                                 "callsign=XX0EL",        "password=s3cret",  "description=Somewhere",
                                                 "max_connections=3",     "block_list=XX0BAD"}
                                  << QStringList{"echolink/accept_incoming=true",
                                                 "echolink/callsign=\"XX0EL\"",
                                                 "echolink/password=\"s3cret\"",
                                                 "echolink/description=\"Somewhere\"",
                                                 "echolink/max_connections=3",
                                                 "echolink/block_list=\"XX0BAD\"",
                                                 "echolink/enabled="};
        QTest::newRow("AllStar") << "AllStar" << QStringList{"click:addEntry", "name=Hub",       "host=bad host",
                                                             "warn:host",      "host=127.0.0.1", "node=41234",
                                                             "username=zl",    "password=pw",    "click:enabled"}
                                 << QStringList{"allstar/servers/0/host=\"127.0.0.1\"",
                                                "allstar/servers/0/node=\"41234\"", "allstar/servers/0/password=\"pw\"",
                                                "allstar/servers/0/enabled=true", "allstar/servers/0/port="};
        QTest::newRow("SvxLink") << "SvxLink" << QStringList{"click:addEntry",        "host=127.0.0.1", "port=5301",
                                                             "auth_key=key",          "protocol=v3",    "tg=240",
                                                             "monitor_tgs=240, 2402", "click:enabled"}
                                 << QStringList{"svxlink/servers/127.0.0.1:5301/auth_key=\"key\"",
                                                "svxlink/servers/127.0.0.1:5301/protocol=\"v3\"",
                                                "svxlink/servers/127.0.0.1:5301/tg=240",
                                                "svxlink/servers/127.0.0.1:5301/monitor_tgs=\"240, 2402\"",
                                                "svxlink/servers/127.0.0.1:5301/enabled=true",
                                                "svxlink/servers/127.0.0.1:5301/hang_time="};
        QTest::newRow("APRS") << "APRS" << QStringList{"callsign_ssid=XX0AP-9",
                                                       "server_host=127.0.0.1",
                                                       "server_port=14581",
                                                       "click:beacon_enabled",
                                                       "lat=59.5",
                                                       "lon=18.25"}
                              << QStringList{"aprs/callsign_ssid=\"XX0AP-9\"",
                                             "aprs/server_host=\"127.0.0.1\"",
                                             "aprs/server_port=14581",
                                             "aprs/beacon_enabled=true",
                                             "aprs/lat=59.5",
                                             "aprs/lon=18.25",
                                             "aprs/filter="};
    }

    void modeTabsStoreWhatThePagesRead()
    {
        QFETCH(QString, title);
        QFETCH(QStringList, steps);
        QFETCH(QStringList, expected);
        MainWindow w;
        SettingsDialog* dialog = SettingsDialog::openOnTab(&w, "");
        selectTab(dialog, title);
        QWidget* tab = dialog->findChild<QTabWidget*>()->currentWidget();
        for (const QString& step : steps) {
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

        for (const QString& each : expected) {
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
