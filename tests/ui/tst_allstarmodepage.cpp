#include "IaxServer.h"
#include "TempConfigHome.h"
#include "app/Config.h"
#include "iax/IaxClient.h"
#include "ui/AllStarModePage.h"
#include "ui/AllStarNodeRow.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QSignalSpy>
#include <QTest>

using State = zl::iax::IaxClient::State;

namespace {

void setNodes(const QJsonArray& nodes)
{
    zl::Config::instance().setSection("allstar", QJsonObject{{"servers", nodes}});
}

QJsonObject node(const QString& name, quint16 port, const QString& number, bool enabled)
{
    return QJsonObject{{"name", name},   {"host", "127.0.0.1"}, {"port", port},         {"username", "radio"},
                       {"password", ""}, {"node", number},      {"callsign", "SM0ABC"}, {"enabled", enabled}};
}

} // namespace

class TestAllStarModePage : public QObject {
    Q_OBJECT

private slots:
    void init() { AllStarModePage::setStartDelay(0); }

    void commandLineNeedsAConnectedActiveNode()
    {
        TempConfigHome home;
        IaxServer silent;
        silent.setAnswer(IaxServer::Answer::Silent);
        setNodes({node("Quiet hub", silent.port(), "1999", true)});
        AllStarModePage page;
        QCOMPARE(page.activeRowKey(), QStringLiteral("1999"));
        QTRY_VERIFY(page.client("1999") && page.client("1999")->state() == State::Connecting);
        page.sendCommand("*70");
        QCOMPARE(page.commandResult(), QStringLiteral("command: no active node connected"));

        setNodes({});
        page.reloadConfig();
        QCOMPARE(page.activeRowKey(), QString());
        page.sendCommand("*70");
        QCOMPARE(page.commandResult(), QStringLiteral("command: no active node connected"));
    }

    void commandGoesAsDtmfToTheActiveNode()
    {
        TempConfigHome home;
        IaxServer hub;
        IaxServer other;
        setNodes({node("Hub", hub.port(), "2000", true), node("Other", other.port(), "2001", true),
                  node("Dormant", other.port(), "2002", false)});
        AllStarModePage page;
        const auto* row = page.findChild<zl::ui::AllStarNodeRow*>("allstarRow_2000");
        QVERIFY(row);
        QCOMPARE(row->text(), QStringLiteral("Hub  —  127.0.0.1  (node 2000)"));
        QTRY_VERIFY(page.client("2000") && page.client("2000")->state() == State::Up);
        QTRY_VERIFY(page.client("2001") && page.client("2001")->state() == State::Up);
        QVERIFY(!page.client("2002"));
        QVERIFY(page.isModeConnected());

        page.setActive("2001");
        hub.received.clear();
        other.received.clear();
        page.sendCommand("  *32000 ");
        QCOMPARE(page.commandResult(), QStringLiteral("sent *32000 to 2001"));
        QString digits;
        QTRY_COMPARE(other.received.size(), 6);
        for (const IaxServer::Frame& frame : other.received) {
            QCOMPARE(frame.type, quint8(1));
            digits.append(QChar(frame.subclass));
        }
        QCOMPARE(digits, QStringLiteral("*32000"));
        QVERIFY(hub.received.isEmpty());

        // Audio from a node is one last-heard line per reception.
        QSignalSpy heard(&page, &BaseModePage::lastHeardLine);
        hub.sendMini(QByteArray(160, char(0xFF)));
        hub.sendMini(QByteArray(160, char(0xFF)));
        QTRY_COMPARE(heard.size(), 1);
        QCOMPARE(heard.first().mid(1),
                 QVariantList({"Hub  —  127.0.0.1  (node 2000)", "", "AllStar", "2000", "", "", ""}));
    }
};

QTEST_MAIN(TestAllStarModePage)
#include "tst_allstarmodepage.moc"
