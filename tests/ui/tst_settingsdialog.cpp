// The settings dialog as a new user meets it: everything through the widgets, offscreen.
#include "HomebrewMaster.h"
#include "M17Reflector.h"
#include "TempConfigHome.h"
#include "app/Config.h"
#include "app/Identity.h"
#include "dmr/DmrPeerManager.h"
#include "ui/MainWindow.h"
#include "ui/SettingsDialog.h"

#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDialog>
#include <QDialogButtonBox>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMessageBox>
#include <QPushButton>
#include <QRegularExpression>
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
