#include "LogCapture.h"
#include "M17Reflector.h"
#include "Pcm.h"
#include "TempConfigHome.h"
#include "app/Config.h"
#include "app/Identity.h"
#include "audio/AudioMixer.h"
#include "db/ServerRegistry.h"
#include "m17/M17Client.h"
#include "m17/M17Voice.h"
#include "ui/M17ModePage.h"
#include "ui/M17ReflectorRow.h"

#include <QCheckBox>
#include <QJsonObject>
#include <QSignalSpy>
#include <QTest>

#include <algorithm>

using zl::m17::M17Client;
using zl::ui::M17ReflectorRow;

namespace {

// 40 ms of a 600 Hz tone.
QByteArray tone40ms()
{
    return pcm::tone(320, 600);
}

M17ReflectorRow* rowOf(const M17ModePage& page, const QString& key)
{
    return page.findChild<M17ReflectorRow*>("m17Row_" + key);
}

} // namespace

class TestM17ModePage : public QObject {
    Q_OBJECT

private:
    TempConfigHome home;
    M17Reflector first;
    M17Reflector second;
    QString firstKey;
    QString secondKey;

    void enable(const QString& key, bool on, const QString& module = "A")
    {
        QJsonObject section = zl::Config::instance().section("m17");
        QJsonObject servers = section.value("servers").toObject();
        servers.insert(key, QJsonObject{{"enabled", on}, {"module", module}});
        section.insert("servers", servers);
        section.remove("active");
        zl::Config::instance().setSection("m17", section);
    }

private slots:
    void initTestCase()
    {
        zl::Identity me;
        me.label = "home";
        me.callsign = "XX0ABC";
        zl::setIdentities("m17", {me});
        zl::ServerRegistry registry("M17");
        firstKey = registry.addUserServer({"", "Loop one", "127.0.0.1", first.port(), "", false, false});
        secondKey = registry.addUserServer({"", "Loop two", "127.0.0.1", second.port(), "", false, false});
        registry.setSelected(firstKey, true);
        registry.setSelected(secondKey, true);
        M17ModePage::setStartDelay(50);
    }

    void init()
    {
        enable(firstKey, true);
        enable(secondKey, true);
    }

    void startsAfterTheDelayAndLinksTheFirstEnabledRow()
    {
        LogCapture log;
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
        QCOMPARE(rowOf(page, firstKey)->statusColour(), QString("#39c34a"));
        QCOMPARE(rowOf(page, firstKey)->property("active").toBool(), true);
        QCOMPARE(rowOf(page, secondKey)->statusColour(), QString("#888"));
        QCOMPARE(log.linesStartingWith("M17: connecting to").size(), 1);
        QVERIFY(log.linesStartingWith("M17: connecting to").first().contains("as \"XX0ABC\""));
        QVERIFY(!log.linesStartingWith("M17: state 2 (0=NotLinked").isEmpty());
        QVERIFY(second.received.isEmpty());
    }

    void clickingRowsMovesTheLinkAndASecondClickUnlinks()
    {
        M17ModePage page;
        QTRY_COMPARE(first.clients().size(), 1);
        QTest::mouseClick(rowOf(page, secondKey), Qt::LeftButton);
        // The old link goes first, then the new row links.
        QTRY_COMPARE(first.clients().size(), 0);
        QTRY_COMPARE(second.clients().size(), 1);
        QTRY_COMPARE(rowOf(page, secondKey)->statusColour(), QString("#39c34a"));
        QCOMPARE(rowOf(page, firstKey)->statusColour(), QString("#888"));
        QCOMPARE(rowOf(page, firstKey)->property("active").toBool(), false);
        QCOMPARE(page.activeRowKey(), secondKey);

        QSignalSpy connected(&page, &BaseModePage::connectedChanged);
        QTest::mouseClick(rowOf(page, secondKey), Qt::LeftButton);
        QTRY_COMPARE(second.clients().size(), 0);
        QVERIFY(second.received.last().startsWith("DISC"));
        QVERIFY(page.activeRowKey().isEmpty());
        QVERIFY(!page.isModeConnected());
        QCOMPARE(rowOf(page, secondKey)->statusColour(), QString("#888"));
        QCOMPARE(rowOf(page, secondKey)->property("active").toBool(), false);
        QVERIFY(!connected.isEmpty());
        QCOMPARE(connected.last().first().toBool(), false);
    }

    void disabledRowsStayDormantAndABadModuleShowsRed()
    {
        enable(firstKey, false);
        enable(secondKey, true, "#");
        first.received.clear();
        M17ModePage page;
        QTRY_COMPARE(rowOf(page, secondKey)->statusColour(), QString("#ff5050"));
        QCOMPARE(rowOf(page, secondKey)->toolTip(), QString("module must be A-Z"));
        QVERIFY(first.received.isEmpty());
        QCOMPARE(second.clients().size(), 0);
        // Turning the row off stops its client and stores the flag.
        rowOf(page, secondKey)->findChild<QCheckBox*>()->click();
        const QJsonObject stored = zl::Config::instance().section("m17").value("servers").toObject();
        QCOMPARE(stored.value(secondKey).toObject().value("enabled").toBool(true), false);
        QVERIFY(!page.isModeEnabled());
        QVERIFY(page.activeRowKey().isEmpty());
    }

    void reloadKeepsAnUnchangedLinkAndRelinksAChangedOne()
    {
        M17ModePage page;
        QTRY_VERIFY(page.isModeConnected());
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
    }

    void aStreamFromAnotherStationIsHeardOnceAndPttTransmits()
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
        QCOMPARE(heard.first().at(1).toString(), QString("XX0OTH"));
        QCOMPARE(heard.first().at(3).toString(), QString("M17"));
        QCOMPARE(heard.first().at(4).toString(), QString("Loop one"));
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
};

QTEST_MAIN(TestM17ModePage)
#include "tst_m17modepage.moc"
