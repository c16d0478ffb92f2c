#include "TempConfigHome.h"
#include "app/Config.h"
#include "app/Identity.h"
#include "dmr/DmrPeerManager.h"
#include "dmr/Peer.h"
#include "ui/DmrModePage.h"
#include "ui/DmrPeerRow.h"

#include <QCheckBox>
#include <QJsonArray>
#include <QLabel>
#include <QPushButton>
#include <QSpinBox>
#include <QTest>

using zl::ui::DmrPeerRow;

namespace {

QJsonObject peer(const QString& label, bool on, int tg, const QString& network = "BrandMeister")
{
    // No server: the manager skips these peers, so no socket is opened.
    return QJsonObject{
        {"label", label}, {"network", network}, {"auto_connect", on}, {"active_tg", tg}, {"identity_label", "home"}};
}

void setPeers(const QJsonArray& peers, const QString& defaultLabel)
{
    zl::Config::instance().setSection("dmr", QJsonObject{{"peers", peers}, {"default_peer_label", defaultLabel}});
}

QStringList rowLabels(const DmrModePage& page)
{
    QStringList labels;
    for (const DmrPeerRow* row : page.findChildren<DmrPeerRow*>())
        labels << row->label();
    return labels;
}

DmrPeerRow* row(const DmrModePage& page, const QString& label)
{
    return page.findChild<DmrPeerRow*>("peerRow_" + label);
}

} // namespace

class TestDmrModePage : public QObject {
    Q_OBJECT

private:
    TempConfigHome home;

private slots:
    void initTestCase()
    {
        zl::Identity home;
        home.label = "home";
        home.callsign = "XX0HOM";
        home.id_field = "2400001";
        zl::setIdentities("dmr", {home});
    }

    void cardFollowsTheDefaultPeerOrTheFirstEnabled()
    {
        setPeers({peer("A", false, 1), peer("B", true, 91, "TGIF"), peer("C", true, 262)}, "C");
        DmrModePage page;
        QVERIFY(page.isModeEnabled() && !page.isModeConnected());
        QCOMPARE(page.serverText() + " " + page.targetText() + " " + page.activeRowKey(),
                 QString("BrandMeister 262 C"));

        // A default peer that does not connect gives way to the first that does.
        setPeers({peer("A", false, 1), peer("B", true, 91, "TGIF"), peer("C", true, 262)}, "A");
        QCOMPARE(page.serverText() + " " + page.targetText(), QString("TGIF 91"));
        // Removing the default peer leaves the first enabled one on the card.
        setPeers({peer("B", true, 91, "TGIF"), peer("C", true, 262)}, "A");
        QCOMPARE(page.serverText(), QString("TGIF"));

        setPeers({peer("A", false, 1)}, "A");
        QVERIFY(!page.isModeEnabled());
        QCOMPARE(page.serverText() + page.targetText(), QString());
    }

    void rowsFollowThePeerListAndKeepTheirWidgets()
    {
        setPeers({peer("A", true, 1), peer("B", false, 2)}, "B");
        DmrModePage page;
        QCOMPARE(rowLabels(page), (QStringList{"A", "B"}));
        DmrPeerRow* b = row(page, "B");
        QVERIFY(b->property("active").toBool() && b->property("primary").toBool());
        QCOMPARE(b->findChildren<QLabel*>().at(1)->text(), QString("▶"));
        QVERIFY(!row(page, "A")->property("active").toBool());
        QCOMPARE(row(page, "A")->findChildren<QLabel*>().at(1)->text(), QString());
        QCOMPARE(row(page, "A")->findChildren<QLabel*>().at(5)->text(), QString("XX0HOM"));

        setPeers({peer("C", true, 3), peer("B", false, 22)}, "B");
        page.reloadConfig();
        QTRY_COMPARE(rowLabels(page), (QStringList{"B", "C"}));
        QCOMPARE(row(page, "B"), b);
        QCOMPARE(b->findChild<QSpinBox*>()->value(), 22);
    }

    void clickMakesTheDefaultAndControlsWriteThePeer()
    {
        setPeers({peer("A", true, 1), peer("B", true, 2)}, "A");
        DmrModePage page;
        DmrPeerRow* b = row(page, "B");
        QTest::mouseClick(b, Qt::LeftButton, {}, QPoint(2, 2));
        QCOMPARE(zl::dmr::defaultPeerLabel(), QString("B"));
        QVERIFY(b->property("primary").toBool());
        QVERIFY(!row(page, "A")->property("primary").toBool());

        b->findChild<QCheckBox*>()->click();
        QCOMPARE(zl::dmr::loadPeers().at(1).auto_connect, false);
        auto* callType = b->findChildren<QPushButton*>().at(0);
        QCOMPARE(callType->text(), QString("GC"));
        callType->click();
        QCOMPARE(callType->text(), QString("PC"));
        QVERIFY(zl::dmr::loadPeers().at(1).private_call);
        auto* tg = b->findChild<QSpinBox*>();
        tg->setValue(3100);
        emit tg->editingFinished();
        QCOMPARE(zl::dmr::loadPeers().at(1).active_tg, quint32(3100));
        // Only B changed, and the file holds it.
        QCOMPARE(zl::dmr::loadPeers().at(0).active_tg, quint32(1));
        const QJsonObject stored =
            zl::Config(home.configFile()).section("dmr").value("peers").toArray().at(1).toObject();
        QCOMPARE(stored.value("active_tg").toInt(), 3100);
        QCOMPARE(stored.value("private_call").toBool(), true);
    }
};

QTEST_MAIN(TestDmrModePage)
#include "tst_dmrmodepage.moc"
