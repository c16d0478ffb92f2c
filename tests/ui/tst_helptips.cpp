#include "TempConfigHome.h"
#include "app/Config.h"
#include "ui/HelpTips.h"

#include <QApplication>
#include <QHelpEvent>
#include <QLabel>
#include <QTest>
#include <QToolTip>
#include <QVBoxLayout>

using zl::ui::HelpTips;

namespace {

void restOn(QWidget* widget)
{
    QHelpEvent event(QEvent::ToolTip, QPoint(2, 2), widget->mapToGlobal(QPoint(2, 2)));
    QApplication::sendEvent(widget, &event);
}

} // namespace

class TestHelpTips : public QObject {
    Q_OBJECT

private:
    TempConfigHome home;
    QWidget window;
    QWidget* row = nullptr;
    QLabel* inner = nullptr;
    QLabel* tipped = nullptr;

private slots:
    void initTestCase()
    {
        HelpTips::instance();
        auto* layout = new QVBoxLayout(&window);
        row = new QWidget;
        row->setProperty("helpText", "A row of the list");
        auto* rowLayout = new QVBoxLayout(row);
        inner = new QLabel("inner");
        tipped = new QLabel("tipped");
        tipped->setToolTip("own tip");
        rowLayout->addWidget(inner);
        rowLayout->addWidget(tipped);
        layout->addWidget(row);
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
    }

    void cleanup()
    {
        QToolTip::hideText();
        QTRY_VERIFY(!QToolTip::isVisible());
    }

    void helpTextComesFromTheNearestCarrier()
    {
        QCOMPARE(HelpTips::helpTextFor(inner), QString("A row of the list"));
        QCOMPARE(HelpTips::helpTextFor(&window), QString());
        QVERIFY(HelpTips::instance().isEnabled());
        restOn(inner);
        QTRY_VERIFY(QToolTip::isVisible());
        QCOMPARE(QToolTip::text(), QString("A row of the list"));
    }

    void ownToolTipGoesFirst()
    {
        restOn(tipped);
        QTRY_VERIFY(QToolTip::isVisible());
        QCOMPARE(QToolTip::text(), QString("own tip"));
    }

    void switchedOffShowsNothingAndIsStored()
    {
        restOn(inner);
        QTRY_VERIFY(QToolTip::isVisible());
        // Switching off takes away a tip that is up.
        HelpTips::instance().setEnabled(false);
        QTRY_VERIFY(!QToolTip::isVisible());
        QVERIFY(!HelpTips::instance().isEnabled());
        QCOMPARE(zl::Config(home.configFile()).section("general").value("help_tips_enabled"), QJsonValue(false));
        restOn(inner);
        QTest::qWait(50);
        QVERIFY(!QToolTip::isVisible());
        HelpTips::instance().setEnabled(true);
        restOn(inner);
        QTRY_VERIFY(QToolTip::isVisible());
    }
};

QTEST_MAIN(TestHelpTips)
#include "tst_helptips.moc"
