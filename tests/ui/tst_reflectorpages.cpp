// The YSF and NXDN pages against loopback reflectors, with simulated AMBE chips in the
// vocoder pool: linking after the start delay, the row dots, a talker from another station,
// and PTT from the active row.
#include "AmbeChips.h"
#include "NxdnReflector.h"
#include "YsfReflector.h"
#include "app/Config.h"
#include "app/Identity.h"
#include "audio/AudioMixer.h"
#include "db/ServerRegistry.h"
#include "nxdn/NxdnNetwork.h"
#include "nxdn/NxdnVoice.h"
#include "ui/NxdnModePage.h"
#include "ui/ReflectorRow.h"
#include "ui/YsfModePage.h"
#include "ysf/YsfNetwork.h"
#include "ysf/YsfVoice.h"

#include <QCheckBox>
#include <QJsonObject>
#include <QSignalSpy>
#include <QTest>

using zl::ui::ReflectorRow;

namespace {

constexpr quint16 kTg = 65000;

ReflectorRow* rowOf(const QWidget& page, const QString& key)
{
    return page.findChild<ReflectorRow*>("reflectorRow_" + key);
}

QString addServer(const QString& mode, const QString& name, quint16 port)
{
    zl::ServerRegistry registry(mode);
    const QString id = registry.addUserServer({"", name, "127.0.0.1", port, "", false, false});
    registry.setSelected(id, true);
    return id;
}

void storeRow(const QString& section, const QString& key, const QJsonObject& values)
{
    QJsonObject all = zl::Config::instance().section(section);
    QJsonObject servers = all.value("servers").toObject();
    servers.insert(key, values);
    all.insert("servers", servers);
    zl::Config::instance().setSection(section, all);
}

void pushTone(int frames)
{
    for (int i = 0; i < frames; ++i)
        emit zl::audio::AudioMixer::instance().micPcmReady(SimulatedAmbeChip::sine(8000, 1000));
}

} // namespace

class TestReflectorPages : public QObject {
    Q_OBJECT

private:
    AmbeChips chips{3, true};

private slots:
    void initTestCase()
    {
        QVERIFY(chips.ready());

        zl::Identity me;
        me.label = "home";
        me.callsign = "XX0ABC";
        me.id_field = "1234";
        zl::setIdentities("ysf", {me});
        zl::setIdentities("nxdn", {me});
        ReflectorModePage::setStartDelay(50);
    }

    void ysfLinksEnabledRowsAndHearsAnotherStation()
    {
        YsfReflector reflector;
        YsfReflector dormant;
        const QString key = addServer("YSF", "Loop YSF", reflector.port());
        const QString dormantKey = addServer("YSF", "Dormant", dormant.port());
        storeRow("ysf", key, {{"enabled", true}});
        storeRow("ysf", dormantKey, {{"enabled", false}});

        YsfModePage page;
        QSignalSpy status(&page, &BaseModePage::statusTextChanged);
        QCOMPARE(page.activeRowKey(), key);
        QVERIFY(reflector.clients().isEmpty());
        QTRY_COMPARE(reflector.clients().size(), 1);
        QTRY_COMPARE(rowOf(page, key)->statusColour(), QString("#39c34a"));
        QVERIFY(page.isModeConnected());
        QCOMPARE(status.last().first().toString(), QString("Online as XX0ABC"));
        QCOMPARE(rowOf(page, dormantKey)->statusColour(), QString("#888"));
        QVERIFY(dormant.clients().isEmpty());

        // Another station talks through the reflector: one row, its speech at the mixer.
        zl::ysf::YsfNetwork other("XX0OTH");
        zl::ysf::YsfVoice otherVoice;
        otherVoice.setIdentity("XX0OTH", "XX0OTH", "", 0);
        connect(&otherVoice, &zl::ysf::YsfVoice::frameReady, &other, &zl::ysf::YsfNetwork::sendFrame);
        QSignalSpy otherFrames(&other, &zl::ysf::YsfNetwork::dataReceived);
        QVERIFY(other.connectTo("127.0.0.1", reflector.port()));
        QTRY_VERIFY(other.isLinked());
        QSignalSpy heard(&page, &BaseModePage::lastHeardLine);
        QSignalSpy playing(&zl::audio::AudioMixer::instance(), &zl::audio::AudioMixer::nowPlayingChanged);
        otherVoice.startTx();
        for (int i = 0; i < 20; ++i)
            otherVoice.pushMicPcm(SimulatedAmbeChip::sine(8000, 1000));
        QTRY_VERIFY(!playing.isEmpty());
        otherVoice.stopTx();
        QCOMPARE(playing.first().first().toString(), QString("ysf"));
        QCOMPARE(heard.size(), 1);
        QCOMPARE(heard.first().at(1).toString(), QString("XX0OTH"));
        QCOMPARE(heard.first().at(3).toString(), QString("YSF"));
        QCOMPARE(heard.first().at(4).toString(), QString("Loop YSF"));

        // PTT on the page: the microphone goes out on the active reflector only.
        otherFrames.clear();
        page.setPttActive(true);
        pushTone(20);
        QTRY_VERIFY(otherFrames.size() >= 2);
        page.setPttActive(false);

        // Turning the dormant row on links it; off again unlinks it.
        rowOf(page, dormantKey)->findChild<QCheckBox*>()->click();
        QTRY_COMPARE(dormant.clients().size(), 1);
        rowOf(page, dormantKey)->findChild<QCheckBox*>()->click();
        QTRY_COMPARE(dormant.clients().size(), 0);
        QCOMPARE(rowOf(page, dormantKey)->statusColour(), QString("#888"));
        other.disconnectFrom();
    }

    void nxdnNamesTheTalkerByIdAndKeepsAnUnchangedLinkOnReload()
    {
        NxdnReflector reflector(kTg);
        const QString key = addServer("NXDN", "Loop NXDN", reflector.port());
        storeRow("nxdn", key, {{"enabled", true}, {"tg", kTg}, {"ran", 1}});

        NxdnModePage page;
        QTRY_COMPARE(reflector.clients().size(), 1);
        QTRY_COMPARE(rowOf(page, key)->statusColour(), QString("#39c34a"));
        const quint16 port = reflector.clients().first().port;
        page.reloadConfig();
        QTest::qWait(30);
        QCOMPARE(reflector.clients().size(), 1);
        QCOMPARE(reflector.clients().first().port, port);

        zl::nxdn::NxdnNetwork other("XX0OTH", kTg);
        zl::nxdn::NxdnVoice otherVoice;
        otherVoice.setIdentity(4321, kTg, 1);
        connect(&otherVoice, &zl::nxdn::NxdnVoice::frameReady, &other, &zl::nxdn::NxdnNetwork::sendFrame);
        QSignalSpy otherFrames(&other, &zl::nxdn::NxdnNetwork::dataReceived);
        QVERIFY(other.connectTo("127.0.0.1", reflector.port()));
        QTRY_VERIFY(other.isLinked());
        QSignalSpy heard(&page, &BaseModePage::lastHeardLine);
        otherVoice.startTx();
        for (int i = 0; i < 20; ++i)
            otherVoice.pushMicPcm(SimulatedAmbeChip::sine(8000, 1000));
        QTRY_COMPARE(heard.size(), 1);
        otherVoice.stopTx();
        QCOMPARE(heard.first().at(1).toString(), QString("4321"));
        QCOMPARE(heard.first().at(3).toString(), QString("NXDN"));

        otherFrames.clear();
        page.setPttActive(true);
        pushTone(20);
        QTRY_VERIFY(otherFrames.size() >= 2);
        page.setPttActive(false);

        // A new talkgroup is connection data: the old link goes, and the reflector does not
        // answer polls for a talkgroup it does not carry.
        other.disconnectFrom();
        QTRY_COMPARE(reflector.clients().size(), 1);
        storeRow("nxdn", key, {{"enabled", true}, {"tg", kTg + 1}, {"ran", 1}});
        page.reloadConfig();
        QTRY_COMPARE(reflector.clients().size(), 0);
        QCOMPARE(rowOf(page, key)->statusColour(), QString("#e0b020"));
        QVERIFY(!page.isModeConnected());
    }
};

QTEST_MAIN(TestReflectorPages)
#include "tst_reflectorpages.moc"
