// The reflector pages (M17, YSF, NXDN) against loopback reflectors, with simulated AMBE chips
// in the vocoder pool: linking after the start delay, the row dots, rows switched and reloaded,
// a talker from another station, and PTT from the active row.
#include "AmbeChips.h"
#include "M17Reflector.h"
#include "NxdnReflector.h"
#include "Pcm.h"
#include "YsfReflector.h"
#include "app/Config.h"
#include "app/Identity.h"
#include "audio/AudioMixer.h"
#include "db/ServerRegistry.h"
#include "m17/M17Client.h"
#include "m17/M17Voice.h"
#include "nxdn/NxdnNetwork.h"
#include "nxdn/NxdnVoice.h"
#include "ui/M17ModePage.h"
#include "ui/M17ReflectorRow.h"
#include "ui/NxdnModePage.h"
#include "ui/ReflectorRow.h"
#include "ui/YsfModePage.h"
#include "ysf/YsfNetwork.h"
#include "ysf/YsfVoice.h"

#include <QCheckBox>
#include <QJsonObject>
#include <QSignalSpy>
#include <QTest>

#include <algorithm>

using zl::m17::M17Client;
using zl::ui::M17ReflectorRow;
using zl::ui::ReflectorRow;

namespace {

constexpr quint16 kTg = 65000;

ReflectorRow* rowOf(const QWidget& page, const QString& key)
{
    return page.findChild<ReflectorRow*>("reflectorRow_" + key);
}

M17ReflectorRow* m17Row(const QWidget& page, const QString& key)
{
    return page.findChild<M17ReflectorRow*>("m17Row_" + key);
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

// Call, mode and server of a last-heard line.
QString callModeServer(const QVariantList& line)
{
    return line.at(1).toString() + "|" + line.at(3).toString() + "|" + line.at(4).toString();
}

// 40 ms of a 600 Hz tone.
QByteArray tone40ms()
{
    return pcm::tone(320, 600);
}

} // namespace

class TestReflectorPages : public QObject {
    Q_OBJECT

private:
    AmbeChips chips{3, true};
    M17Reflector first;
    M17Reflector second;
    QString firstKey;
    QString secondKey;

    // An M17 row switched on or off, with no row remembered as the active one.
    void enable(const QString& key, bool on, const QString& module = "A")
    {
        storeRow("m17", key, {{"enabled", on}, {"module", module}});
        QJsonObject section = zl::Config::instance().section("m17");
        section.remove("active");
        zl::Config::instance().setSection("m17", section);
    }

private slots:
    void initTestCase()
    {
        QVERIFY(chips.ready());
        zl::Identity me;
        me.label = "home";
        me.callsign = "XX0ABC";
        me.id_field = "1234";
        for (const char* mode : {"m17", "ysf", "nxdn"})
            zl::setIdentities(mode, {me});
        firstKey = addServer("M17", "Loop one", first.port());
        secondKey = addServer("M17", "Loop two", second.port());
        ReflectorModePage::setStartDelay(50);
        M17ModePage::setStartDelay(50);
    }

    void init()
    {
        enable(firstKey, true);
        enable(secondKey, true);
        // Without a sound server no timer ends the stream of the case before at the speaker.
        zl::audio::AudioMixer::instance().setNowPlaying({});
    }

    // The first enabled row links after the start delay; a reload keeps an unchanged link and
    // relinks a changed one; a click moves the link to another row, a second click unlinks.
    void m17RowsLinkReloadAndMove()
    {
        M17ModePage page;
        QCOMPARE(page.findChildren<M17ReflectorRow*>().size(), 2);
        QVERIFY(page.isModeEnabled());
        // No socket before the window had its chance to show.
        QVERIFY(first.received.isEmpty());
        QTRY_COMPARE(first.clients().size(), 1);
        QCOMPARE(first.clients().first().module, 'A');
        QTRY_VERIFY(page.isModeConnected());
        QCOMPARE(page.activeRowKey(), firstKey);
        QCOMPARE(page.serverText(), QString("Loop one"));
        QCOMPARE(m17Row(page, firstKey)->statusColour(), QString("#39c34a"));
        QCOMPARE(m17Row(page, secondKey)->statusColour(), QString("#888"));
        QVERIFY(second.received.isEmpty());

        const quint16 port = first.clients().first().port;
        const auto conns = [this] {
            return std::count_if(first.received.cbegin(), first.received.cend(),
                                 [](const QByteArray& d) { return d.startsWith("CONN"); });
        };
        const auto connsBefore = conns();
        page.reloadConfig();
        QTest::qWait(30);
        QCOMPARE(conns(), connsBefore);
        QCOMPARE(first.clients().size(), 1);
        QCOMPARE(first.clients().first().port, port);
        enable(firstKey, true, "c");
        page.reloadConfig();
        QTRY_COMPARE(first.clients().size(), 1);
        QTRY_COMPARE(first.clients().first().module, 'C');
        QCOMPARE(conns(), connsBefore + 1);

        QTest::mouseClick(m17Row(page, secondKey), Qt::LeftButton);
        // The old link goes first, then the new row links.
        QTRY_COMPARE(first.clients().size(), 0);
        QTRY_COMPARE(second.clients().size(), 1);
        QTRY_COMPARE(m17Row(page, secondKey)->statusColour(), QString("#39c34a"));
        QCOMPARE(m17Row(page, firstKey)->statusColour(), QString("#888"));
        QCOMPARE(page.activeRowKey(), secondKey);
        QSignalSpy connected(&page, &BaseModePage::connectedChanged);
        QTest::mouseClick(m17Row(page, secondKey), Qt::LeftButton);
        QTRY_COMPARE(second.clients().size(), 0);
        QVERIFY(second.received.last().startsWith("DISC"));
        QVERIFY(page.activeRowKey().isEmpty() && !page.isModeConnected());
        QCOMPARE(connected.last().first().toBool(), false);
    }

    void m17DisabledRowsStayDormantAndABadModuleShowsRed()
    {
        enable(firstKey, false);
        enable(secondKey, true, "#");
        first.received.clear();
        M17ModePage page;
        QTRY_COMPARE(m17Row(page, secondKey)->statusColour(), QString("#ff5050"));
        QCOMPARE(m17Row(page, secondKey)->toolTip(), QString("module must be A-Z"));
        QVERIFY(first.received.isEmpty());
        QCOMPARE(second.clients().size(), 0);
        // Turning the row off stops its client and stores the flag.
        m17Row(page, secondKey)->findChild<QCheckBox*>()->click();
        const QJsonObject stored = zl::Config::instance().section("m17").value("servers").toObject();
        QCOMPARE(stored.value(secondKey).toObject().value("enabled").toBool(true), false);
        QVERIFY(!page.isModeEnabled());
        QVERIFY(page.activeRowKey().isEmpty());
    }

    void m17StreamFromAnotherStationIsHeardOnceAndPttTransmits()
    {
        M17ModePage page;
        QTRY_VERIFY(page.isModeConnected());

        M17Client other;
        zl::m17::M17Voice otherVoice;
        QSignalSpy otherFrames(&other, &M17Client::voiceFrameRx);
        connect(&otherVoice, &zl::m17::M17Voice::frameReady, &other, &M17Client::sendFrame);
        QVERIFY(other.linkTo("127.0.0.1", first.port(), "XX0OTH", 'A'));
        QTRY_COMPARE(other.state(), M17Client::State::Linked);

        QSignalSpy heard(&page, &BaseModePage::lastHeardLine);
        QSignalSpy playing(&zl::audio::AudioMixer::instance(), &zl::audio::AudioMixer::nowPlayingChanged);
        otherVoice.startTx("XX0OTH");
        for (int i = 0; i < 5; ++i)
            otherVoice.pushMicPcm(tone40ms());
        otherVoice.stopTx();
        QTRY_COMPARE(heard.size(), 1);
        QTRY_VERIFY(!playing.isEmpty());
        QCOMPARE(playing.first().first().toString(), QString("m17"));
        QCOMPARE(callModeServer(heard.first()), QString("XX0OTH|M17|Loop one"));
        // The rest of the stream makes no further row; the next stream does.
        QTest::qWait(50);
        QCOMPARE(heard.size(), 1);
        otherVoice.startTx("XX0OTH");
        otherVoice.pushMicPcm(tone40ms());
        otherVoice.stopTx();
        QTRY_COMPARE(heard.size(), 2);

        // PTT on the page: microphone PCM becomes frames at the other station.
        otherFrames.clear();
        page.setPttActive(true);
        for (int i = 0; i < 3; ++i)
            emit zl::audio::AudioMixer::instance().micPcmReady(tone40ms());
        page.setPttActive(false);
        QTRY_VERIFY(otherFrames.size() >= 4);
        // Without PTT the microphone sends nothing.
        const qsizetype relayed = first.relayed.size();
        emit zl::audio::AudioMixer::instance().micPcmReady(tone40ms());
        QTest::qWait(30);
        QCOMPARE(first.relayed.size(), relayed);
        other.disconnectFromReflector();
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
        QCOMPARE(callModeServer(heard.first()), QString("XX0OTH|YSF|Loop YSF"));

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
        QCOMPARE(callModeServer(heard.first()), QString("4321|NXDN|Loop NXDN"));

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
