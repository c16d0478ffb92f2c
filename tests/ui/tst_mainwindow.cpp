#include "M17Reflector.h"
#include "PulseServer.h"
#include "TempConfigHome.h"
#include "app/Config.h"
#include "app/Identity.h"
#include "app/TxTimeout.h"
#include "audio/AudioMixer.h"
#include "db/ServerRegistry.h"
#include "ui/BaseModePage.h"
#include "ui/HelpTips.h"
#include "ui/LastHeardWindow.h"
#include "ui/M17ModePage.h"
#include "ui/MainWindow.h"
#include "ui/SoundTestWindow.h"

#include <QApplication>
#include <QAudioDevice>
#include <QCheckBox>
#include <QComboBox>
#include <QDateTime>
#include <QGroupBox>
#include <QHelpEvent>
#include <QJsonArray>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMediaDevices>
#include <QPushButton>
#include <QScreen>
#include <QSignalSpy>
#include <QSlider>
#include <QStackedWidget>
#include <QStatusBar>
#include <QTableWidget>
#include <QTest>
#include <QToolTip>
#include <QVBoxLayout>

using namespace zl;

namespace {

const QStringList kModes = {"AllStar", "APRS", "D-STAR", "DMR",    "DMR SMS", "Echolink",
                            "M17",     "NXDN", "P25",    "POCSAG", "SvxLink", "YSF"};

void setGeneral(const QString& key, const QJsonValue& value)
{
    QJsonObject general = Config::instance().section("general");
    general.insert(key, value);
    Config::instance().setSection("general", general);
}

QPushButton* ptt(MainWindow& w)
{
    return w.findChild<QPushButton*>("ptt");
}

QTableWidget* table(MainWindow& w)
{
    return w.findChild<QTableWidget*>("lastHeard");
}

BaseModePage* page(MainWindow& w, const QString& mode)
{
    auto* stack = w.findChild<QStackedWidget*>("modeStack");
    for (int i = 0; i < stack->count(); ++i) {
        auto* p = qobject_cast<BaseModePage*>(stack->widget(i));
        if (p && p->mode() == mode)
            return p;
    }
    return nullptr;
}

QString cardText(MainWindow& w, const QString& mode)
{
    auto* card = w.findChild<QPushButton*>("card_" + BaseModePage::keyOf(mode));
    auto* label = card ? card->findChild<QLabel*>("cardLabel") : nullptr;
    return label ? label->text() : QString();
}

QString cell(MainWindow& w, int row, int column)
{
    QTableWidgetItem* item = table(w)->item(row, column);
    return item ? item->text() : QStringLiteral("<none>");
}

void emitLine(BaseModePage* p, const QString& call)
{
    emit p->lastHeardLine("12:00:00", call, "", p->mode(), "REF001", "", "", "");
}

} // namespace

class TestMainWindow : public QObject {
    Q_OBJECT

private:
    // A sound server with a microphone, started before anything opens an audio device.
    PulseServer pulse;
    TempConfigHome home;
    // PTT needs a link to talk to: M17 through a loopback reflector.
    M17Reflector reflector;
    QString reflectorKey;
    QJsonValue m17Servers;

    // A fresh configuration for each case: no AMBE probing, one selectable D-STAR server, and
    // the loopback M17 reflector linked once the window is up.
    void resetConfig(const QJsonObject& general = {})
    {
        Config& config = Config::instance();
        for (const char* name : {"general", "lastheard", "windows", "dstar", "d-star", "p25", "dmr", "audio"})
            config.setSection(QString::fromLatin1(name), {});
        config.setSection("hardware", QJsonObject{{"ambe_md380_enabled", false}});
        config.setSection("general", general);
        config.setSection("d-star", QJsonObject{{"selected_server_ids", QJsonArray{"d-star-REF001"}}});
        config.setSection("m17", QJsonObject{{"user_servers", m17Servers},
                                             {"selected_server_ids", QJsonArray{reflectorKey}},
                                             {"servers", QJsonObject{{reflectorKey, QJsonObject{{"enabled", true}}}}}});
        config.save();
    }

    // A window whose M17 page is linked, so that PTT has somewhere to go.
    static void waitForLink(MainWindow& w) { QTRY_VERIFY(page(w, "M17")->isModeConnected()); }

private slots:
    void initTestCase()
    {
        QFile file(ServerRegistry::cachePath("D-STAR"));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(R"([{"id": "d-star-REF001", "name": "REF001", "host": "127.0.0.1", "port": 20001}])");
        zl::Identity me;
        me.label = "home";
        me.callsign = "XX0ABC";
        zl::setIdentities("m17", {me});
        reflectorKey =
            ServerRegistry("M17").addUserServer({"", "Loop", "127.0.0.1", reflector.port(), "", false, false});
        m17Servers = Config::instance().section("m17").value("user_servers");
        M17ModePage::setStartDelay(0);
    }

    void durationFormat()
    {
        const QList<std::pair<qint64, QString>> cases = {{0, "0.0 s"},    {1240, "1.2 s"},  {59940, "59.9 s"},
                                                         {60000, "1:00"}, {125999, "2:05"}, {3600000, "60:00"}};
        for (const auto& [ms, text] : cases)
            QCOMPARE(MainWindow::formatDuration(ms), text);
    }

    void constructionLeavesTheWindowComplete()
    {
        resetConfig(QJsonObject{{"callsign", "XX0ABC"}, {"default_mode", "P25"}});
        Config::instance().setSection("audio", QJsonObject{{"default_mic_volume", 70}});
        Config::instance().setSection("p25", QJsonObject{{"audio", QJsonObject{{"spk_volume", 35}}}});
        MainWindow w;
        QCOMPARE(w.findChild<QLabel*>("ambeStatus")->text(), QString("none"));
        QCOMPARE(w.findChild<QLabel*>("dmrStatus")->text(), QString("no peers"));
        QCOMPARE(w.findChild<QLabel*>("callLabel")->text(), QString("Call: XX0ABC"));
        QCOMPARE(w.findChild<QLabel*>("txLabel")->text(), QString("TX P25→ "));
        // The audio fields are those of the default mode, loaded after the rows were built.
        QCOMPARE(w.findChild<QSlider*>("micSlider")->value(), 70);
        QCOMPARE(w.findChild<QSlider*>("spkSlider")->value(), 35);
        QCOMPARE(zl::audio::AudioMixer::instance().spkVolumePercent(), 35);
        // A configuration change: the label shows the identity of the active mode.
        zl::Identity own;
        own.label = "p25";
        own.callsign = "XX9P25";
        zl::setIdentities("p25", {own});
        QCOMPARE(w.findChild<QLabel*>("callLabel")->text(), QString("Call: XX9P25"));
        zl::setIdentities("p25", {});
    }

    void defaultModeIsSelected_data()
    {
        QTest::addColumn<QJsonObject>("general");
        QTest::addColumn<QString>("mode");
        QTest::newRow("unset") << QJsonObject() << "DMR";
        QTest::newRow("P25") << QJsonObject{{"default_mode", "P25"}} << "P25";
        QTest::newRow("unknown") << QJsonObject{{"default_mode", "FM"}} << "";
    }

    void defaultModeIsSelected()
    {
        QFETCH(QJsonObject, general);
        QFETCH(QString, mode);
        resetConfig(general);
        MainWindow w;
        QStringList checked;
        for (const QString& m : kModes) {
            if (w.findChild<QPushButton*>("card_" + BaseModePage::keyOf(m))->isChecked())
                checked << m;
        }
        QCOMPARE(checked, mode.isEmpty() ? QStringList() : QStringList{mode});
        auto* stack = w.findChild<QStackedWidget*>("modeStack");
        if (mode.isEmpty())
            QCOMPARE(stack->currentIndex(), 0);
        else
            QCOMPARE(qobject_cast<BaseModePage*>(stack->currentWidget())->mode(), mode);
    }

    // Message modes release PTT, disable it and hide the last-heard list; a mode without a
    // network client says so on its card, stores its toggle and refuses PTT.
    void modesThatCannotTransmit()
    {
        resetConfig();
        MainWindow w;
        waitForLink(w);
        auto* group = w.findChild<QGroupBox*>("lastHeardGroup");
        for (const QString mode : {"APRS", "POCSAG", "DMR SMS"}) {
            w.selectMode("M17");
            ptt(w)->click();
            QVERIFY(ptt(w)->isChecked() && !group->isHidden());
            w.selectMode(mode);
            QVERIFY2(!ptt(w)->isChecked() && !ptt(w)->isEnabled() && group->isHidden(), qPrintable(mode));
            QVERIFY(w.findChild<QPushButton*>("card_" + BaseModePage::keyOf(mode))->isChecked());
        }
        w.selectMode("YSF");
        QVERIFY(ptt(w)->isEnabled() && !group->isHidden());

        QVERIFY(cardText(w, "D-STAR").contains("font-size:9pt;'>REF001</div>"));
        QVERIFY(cardText(w, "P25").endsWith("font-size:9pt;'>no client</div>"));
        page(w, "D-STAR")->findChild<QCheckBox*>()->setChecked(true);
        QVERIFY(cardText(w, "D-STAR").contains("color:#777;") && cardText(w, "D-STAR").endsWith(">no client</div>"));
        QCOMPARE(Config::instance().section("dstar").value("enabled"), QJsonValue(true));
        w.selectMode("D-STAR");
        const int rows = table(w)->rowCount();
        ptt(w)->click();
        QVERIFY(!ptt(w)->isChecked());
        QCOMPARE(w.statusBar()->currentMessage(), QString("PTT: D-STAR has no network client"));
        QCOMPARE(table(w)->rowCount(), rows);
    }

    // A transmission ends at its time-out, with the end-of-stream frame and a status line, and
    // when its link goes down.
    void transmissionEndsAtTimeOutOrLinkLoss()
    {
        resetConfig(QJsonObject{{"default_mode", "M17"}, {"tx_timeout_s", 12}});
        MainWindow w;
        w.show();
        waitForLink(w);
        w.findChild<zl::TxTimeout*>()->setTimeUnitForTests(25);
        reflector.received.clear();
        ptt(w)->click();
        QVERIFY(ptt(w)->isChecked());
        QTRY_VERIFY(!ptt(w)->isChecked());
        QCOMPARE(w.statusBar()->currentMessage(), QString("TX time-out after 12 s"));
        QTRY_VERIFY(std::any_of(reflector.received.cbegin(), reflector.received.cend(), [](const QByteArray& d) {
            return d.startsWith("M17 ") && d.size() == 54 && (quint8(d[34]) & 0x80);
        }));

        ptt(w)->click();
        QVERIFY(ptt(w)->isChecked());
        reflector.disconnectAll();
        QTRY_VERIFY(!ptt(w)->isChecked());
        QCOMPARE(w.statusBar()->currentMessage(), QString("TX ended: M17 is no longer connected"));
    }

    void keyboardAndMousePtt()
    {
        resetConfig(QJsonObject{{"ptt_key", int(Qt::Key_F5)}, {"default_mode", "M17"}});
        MainWindow w;
        waitForLink(w);
        QWidget* target = w.findChild<QStackedWidget*>("modeStack");
        const auto key = [target](QEvent::Type type, bool repeat = false, int code = Qt::Key_F5) {
            QKeyEvent event(type, code, Qt::NoModifier, QString(), repeat);
            QApplication::sendEvent(target, &event);
        };
        key(QEvent::KeyPress);
        key(QEvent::KeyPress, true);
        key(QEvent::KeyRelease, true);
        QVERIFY(ptt(w)->isChecked());
        // Auto-repeat that Qt does not flag: a release and a press at once keep one transmission.
        QSignalSpy toggled(ptt(w), &QPushButton::toggled);
        for (int i = 0; i < 20; ++i) {
            key(QEvent::KeyRelease);
            key(QEvent::KeyPress);
        }
        QTest::qWait(MainWindow::kPttRepeatGapMs * 2);
        QVERIFY(ptt(w)->isChecked());
        QCOMPARE(toggled.size(), 0);
        key(QEvent::KeyRelease);
        QTRY_VERIFY(!ptt(w)->isChecked());
        QCOMPARE(toggled.size(), 1);
        key(QEvent::KeyPress, false, Qt::Key_F6);
        QVERIFY(!ptt(w)->isChecked());

        // Toggle, read from the configuration when it changes: each press flips, repeats do nothing.
        setGeneral("ptt_kbd_hold", false);
        key(QEvent::KeyPress);
        key(QEvent::KeyRelease);
        key(QEvent::KeyPress, true);
        key(QEvent::KeyRelease, true);
        QVERIFY(ptt(w)->isChecked());
        QTest::qWait(MainWindow::kPttRepeatGapMs * 2);
        key(QEvent::KeyPress);
        QVERIFY(!ptt(w)->isChecked());
        setGeneral("ptt_key", 0);
        key(QEvent::KeyPress);
        QVERIFY(!ptt(w)->isChecked());

        // The mouse latches by default, or holds; a press on the disabled button does nothing.
        QTest::mouseClick(ptt(w), Qt::LeftButton);
        QVERIFY(ptt(w)->isChecked());
        QTest::mouseClick(ptt(w), Qt::LeftButton);
        QVERIFY(!ptt(w)->isChecked());
        setGeneral("ptt_mouse_hold", true);
        QTest::mousePress(ptt(w), Qt::LeftButton);
        QVERIFY(ptt(w)->isChecked());
        QTest::mouseRelease(ptt(w), Qt::LeftButton);
        QVERIFY(!ptt(w)->isChecked());
        w.selectMode("APRS");
        QTest::mousePress(ptt(w), Qt::LeftButton);
        QVERIFY(!ptt(w)->isChecked());
    }

    void pttKeyTypesInTextFields()
    {
        resetConfig(QJsonObject{{"ptt_key", int(Qt::Key_Space)}, {"default_mode", "M17"}});
        MainWindow w;
        waitForLink(w);
        w.show();
        QVERIFY(QTest::qWaitForWindowActive(&w));
        auto* edit = page(w, "P25")->findChild<QLineEdit*>();
        QVERIFY(edit);
        edit->setFocus();
        QTRY_COMPARE(QApplication::focusWidget(), edit);
        QTest::keyClick(edit, Qt::Key_Space);
        QTest::keyClick(edit, Qt::Key_A);
        QVERIFY(!ptt(w)->isChecked());
        QCOMPARE(edit->text(), QString(" a"));

        // Focus elsewhere: the same key transmits and is not typed.
        ptt(w)->setFocus();
        QTRY_COMPARE(QApplication::focusWidget(), ptt(w));
        QTest::keyPress(ptt(w), Qt::Key_Space);
        QVERIFY(ptt(w)->isChecked());
        QTest::keyRelease(ptt(w), Qt::Key_Space);
        QTRY_VERIFY(!ptt(w)->isChecked());
        QCOMPARE(edit->text(), QString(" a"));
    }

    void pttWritesATxRowAndSavesTheVolume()
    {
        resetConfig(QJsonObject{{"default_mode", "M17"}, {"callsign", "XX0ABC"}});
        MainWindow w;
        waitForLink(w);
        ptt(w)->click();
        QCOMPARE(table(w)->rowCount(), 1);
        QCOMPARE(cell(w, 0, 1) + cell(w, 0, 3) + cell(w, 0, 5) + cell(w, 0, 6), QString("XX0ABCM17(TX)"));
        QCOMPARE(table(w)->item(0, 0)->background().color(), QColor(220, 40, 40, 64));
        // The volume changed during PTT is saved at release.
        auto* slider = w.findChild<QSlider*>("spkSlider");
        QVERIFY(!slider->isEnabled());
        slider->setValue(42);
        QCOMPARE(zl::audio::AudioMixer::instance().spkVolumePercent(), 42);
        QTRY_COMPARE(Config::instance().section("m17").value("audio").toObject().value("spk_volume").toInt(), 42);
        QVERIFY(!Config(home.configFile()).section("m17").value("audio").toObject().contains("spk_volume"));
        ptt(w)->click();
        QCOMPARE(Config(home.configFile()).section("m17").value("audio").toObject().value("spk_volume").toInt(), 42);
        QCOMPARE(table(w)->rowCount(), 1);
        QVERIFY(cell(w, 0, 6).endsWith(" s"));
        QCOMPARE(table(w)->item(0, 0)->background().style(), Qt::NoBrush);
        // Another mode has its own values.
        w.selectMode("D-STAR");
        QCOMPARE(slider->value(), 80);

        // DMR with no peers: nothing to talk to, the status line says so and no row is stored.
        w.selectMode("DMR");
        ptt(w)->click();
        QVERIFY(!ptt(w)->isChecked());
        QCOMPARE(w.statusBar()->currentMessage(), QString("PTT: no default DMR peer — add one or click a peer row"));
        QCOMPARE(table(w)->rowCount(), 1);
        QCOMPARE(Config::instance().section("lastheard").value("entries").toArray().size(), 1);
    }

    void microphoneThatCannotOpenRefusesPtt()
    {
        QVERIFY(pulse.isRunning());
        pulse.pactl({"unload-module", "module-remap-source"});
        QTRY_VERIFY(QMediaDevices::audioInputs().isEmpty());
        // The sound server moved the open stream elsewhere; a fresh start finds no microphone.
        zl::audio::AudioMixer::instance().setMicDevice("zl-tone");
        resetConfig(QJsonObject{{"default_mode", "M17"}, {"callsign", "XX0ABC"}});
        MainWindow w;
        QCOMPARE(w.statusBar()->currentMessage(), QString("microphone unavailable: no microphone found"));
        waitForLink(w);
        ptt(w)->click();
        QVERIFY(!ptt(w)->isChecked());
        QCOMPARE(w.statusBar()->currentMessage(), QString("PTT: microphone unavailable: no microphone found"));
        QCOMPARE(table(w)->rowCount(), 0);
        pulse.pactl({"load-module", "module-remap-source", "master=zl_mic.monitor", "source_name=zl_tone",
                     "source_properties=device.description=zl-tone"});
        pulse.pactl({"set-default-source", "zl_tone"});
        QTRY_VERIFY(!QMediaDevices::audioInputs().isEmpty());
    }

    // Fifty rows, newest first, stored as they come and shown again at the next start; a longer
    // stored list is cut to its first fifty.
    void lastHeardKeepsFiftyNewestFirstAcrossRestart()
    {
        resetConfig(QJsonObject{{"default_mode", "P25"}});
        {
            MainWindow w;
            for (int i = 0; i < 55; ++i)
                emitLine(page(w, "M17"), QStringLiteral("C%1").arg(i));
            QCOMPARE(table(w)->rowCount(), MainWindow::kMaxLastHeard);
            QCOMPARE(cell(w, 0, 5), QString("REF001"));
        }
        const QJsonArray entries = Config(home.configFile()).section("lastheard").value("entries").toArray();
        QCOMPARE(entries.size(), 50);
        QCOMPARE(entries.first().toObject().keys(),
                 (QStringList{"call", "country", "dur", "loss", "mode", "rssi", "server", "target", "time"}));
        {
            MainWindow again;
            QCOMPARE(table(again)->rowCount(), 50);
            QCOMPARE(cell(again, 0, 0) + " " + cell(again, 0, 1) + " " + cell(again, 49, 1),
                     QString("12:00:00 C54 C5"));
        }
        QJsonArray many;
        for (int i = 0; i < 60; ++i)
            many.append(QJsonObject{{"call", QStringLiteral("S%1").arg(i)}});
        Config::instance().setSection("lastheard", QJsonObject{{"entries", many}});
        MainWindow cut;
        QCOMPARE(table(cut)->rowCount(), 50);
        QCOMPARE(cell(cut, 0, 1) + " " + cell(cut, 49, 1), QString("S0 S49"));
    }

    // The large view: fed from the compact table and then row by row, searched, filtered by
    // mode, and rid of rows older than a day.
    void largeLastHeardFiltersAndPrunes()
    {
        resetConfig(QJsonObject{{"default_mode", "P25"}});
        MainWindow w;
        emitLine(page(w, "M17"), "M17CALL");
        emitLine(page(w, "YSF"), "YSFCALL");
        QTest::mouseClick(table(w)->viewport(), Qt::LeftButton, {},
                          table(w)->visualItemRect(table(w)->item(0, 0)).center());
        auto* large = w.findChild<LastHeardWindow*>();
        QVERIFY(large && large->isVisible());
        auto* rows = large->findChild<QTableWidget*>("lastHeardLarge");
        QCOMPARE(rows->rowCount(), 2);
        QCOMPARE(rows->item(0, 1)->text(), QString("YSFCALL"));
        const auto visible = [rows] {
            QStringList calls;
            for (int row = 0; row < rows->rowCount(); ++row) {
                if (!rows->isRowHidden(row))
                    calls << rows->item(row, 1)->text();
            }
            return calls;
        };
        auto* mode = large->findChild<QComboBox*>("lastHeardMode");
        mode->setCurrentText("YSF");
        emitLine(page(w, "NXDN"), "NXDNCALL");
        QCOMPARE(mode->currentText(), QString("YSF"));
        QCOMPARE(visible(), QStringList{"YSFCALL"});
        mode->setCurrentIndex(0);
        large->findChild<QLineEdit*>("lastHeardSearch")->setText("m17c");
        emitLine(page(w, "YSF"), "OTHER");
        QCOMPARE(visible(), QStringList{"M17CALL"});

        // A row from a day and a minute ago goes with the next row.
        rows->item(rows->rowCount() - 1, 0)->setData(Qt::UserRole + 1, QDateTime::currentDateTime().addSecs(-86460));
        emitLine(page(w, "YSF"), "NEWEST");
        QCOMPARE(rows->rowCount(), 4);
        QVERIFY(rows->findItems("M17CALL", Qt::MatchExactly).isEmpty());
        large->close();
        QTRY_VERIFY(!w.findChild<LastHeardWindow*>());
    }

    void geometryIsSavedAndFitsTheScreen()
    {
        resetConfig();
        const QRect area = QGuiApplication::primaryScreen()->availableGeometry();
        {
            MainWindow w;
            QVERIFY(w.width() <= area.width() - 24 && w.height() <= area.height() - 48);
            w.show();
            QVERIFY(QTest::qWaitForWindowExposed(&w));
            w.resize(w.minimumSize() + QSize(10, 10));
            w.close();
        }
        MainWindow again;
        QCOMPARE(again.size(), again.minimumSize() + QSize(10, 10));
    }

    // The sound test follows its action; its tone plays once however often the button is
    // pressed, on the speaker, and gives the button back; levels are stored as they change.
    void soundTest()
    {
        resetConfig();
        MainWindow w;
        auto* action = w.findChild<QAction*>("soundTestAction");
        action->trigger();
        auto* window = w.findChild<zl::ui::SoundTestWindow*>();
        QVERIFY(window && window->isVisible());
        auto* tone = window->findChild<QPushButton*>("toneButton");
        const qsizetype streams = pulse.sinkInputSinks().size();
        tone->click();
        tone->click();
        QVERIFY(!tone->isEnabled());
        QTRY_COMPARE(pulse.sinkInputSinks().size(), streams + 1);
        QTRY_VERIFY_WITH_TIMEOUT(tone->isEnabled(), 5000);
        window->findChild<QSlider*>("default_spk_boost_db")->setValue(4);
        QCOMPARE(Config::instance().section("audio").value("default_spk_boost_db").toInt(), 4);
        window->close();
        QTRY_VERIFY(!action->isChecked());
    }

    // A widget's own tool tip goes first, else the help text of the nearest carrier; switched
    // off, the tips go at once and the choice is stored.
    void helpTipsComeFromTheNearestCarrier()
    {
        using zl::ui::HelpTips;
        QWidget window;
        auto* row = new QWidget;
        row->setProperty("helpText", "A row of the list");
        auto* inner = new QLabel("inner");
        auto* tipped = new QLabel("tipped");
        tipped->setToolTip("own tip");
        (new QVBoxLayout(row))->addWidget(inner);
        row->layout()->addWidget(tipped);
        (new QVBoxLayout(&window))->addWidget(row);
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        const auto restOn = [](QWidget* widget) {
            QHelpEvent event(QEvent::ToolTip, QPoint(2, 2), widget->mapToGlobal(QPoint(2, 2)));
            QApplication::sendEvent(widget, &event);
        };
        QVERIFY(HelpTips::instance().isEnabled());
        QCOMPARE(HelpTips::helpTextFor(&window), QString());
        restOn(tipped);
        QTRY_COMPARE(QToolTip::text(), QString("own tip"));
        QToolTip::hideText();
        QTRY_VERIFY(!QToolTip::isVisible());
        restOn(inner);
        QTRY_COMPARE(QToolTip::text(), QString("A row of the list"));
        QVERIFY(QToolTip::isVisible());
        HelpTips::instance().setEnabled(false);
        QTRY_VERIFY(!QToolTip::isVisible());
        QCOMPARE(Config(home.configFile()).section("general").value("help_tips_enabled"), QJsonValue(false));
        restOn(inner);
        QTest::qWait(50);
        QVERIFY(!QToolTip::isVisible());
        HelpTips::instance().setEnabled(true);
        restOn(inner);
        QTRY_VERIFY(QToolTip::isVisible());
        QToolTip::hideText();
    }
};

QTEST_MAIN(TestMainWindow)
#include "tst_mainwindow.moc"
