#include "FastClock.h"
#include "HomebrewMaster.h"
#include "VoiceTestKit.h"
#include "dmr/DMRLC.h"
#include "dmr/DmrPeerClient.h"

#include <QRegularExpression>
#include <QSignalSpy>
#include <QTest>
#include <QtEndian>

using zl::dmr::DmrPeerClient;

namespace {

// Protocol time on a sped-up clock: a timer may fire late on a loaded machine, by up to
// 150 ms of real time, but never early.
bool onTime(qint64 actual, qint64 expected)
{
    return actual > expected - 300 && actual < expected + 1500;
}

constexpr quint32 kPeerId = 240000001;
const QString kPassword = QStringLiteral("s3cret");

using kit::be32;

QByteArray be24(quint32 v)
{
    return be32(v).mid(1);
}

// A 55-byte DMRD datagram as a master sends it, its burst filled with the sequence number.
QByteArray dmrd(quint8 seq, quint32 stream, quint8 flags = 0x00, quint32 src = 2400000, quint32 dst = 91)
{
    return kit::dmrd(seq, src, dst, flags, stream, QByteArray(33, char(seq)));
}

// One client against one loopback master, both on a clock `speedup` times faster than real time.
struct Rig {
    explicit Rig(int speedup, const std::function<void(DmrPeerClient::Profile&)>& tweak = {}) : clock(speedup)
    {
        const bool ok = master.listen();
        Q_ASSERT(ok);
        master.addPeer(kPeerId, kPassword);
        master.setClock([this] { return clock.now(); });
        client.setClockForTests([this] { return clock.now(); }, speedup);
        profile = kit::profile(QStringLiteral("Test"), master.port(), kPeerId, kPassword);
        if (tweak)
            tweak(profile);
        client.setProfile(profile);
    }

    bool login()
    {
        client.start();
        return QTest::qWaitFor([&] { return client.state() == DmrPeerClient::Running; }, 5000) &&
               master.isLoggedIn(kPeerId);
    }

    // The client's port, from what it sent.
    quint16 clientPort() const { return master.received().constFirst().fromPort; }

    FastClock clock;
    HomebrewMaster master;
    DmrPeerClient client;
    DmrPeerClient::Profile profile;
};

QList<DmrPeerClient::State> states(const QSignalSpy& spy)
{
    QList<DmrPeerClient::State> out;
    for (const QList<QVariant>& args : spy)
        out.append(args.at(0).value<DmrPeerClient::State>());
    return out;
}

// Gaps between the arrival times of consecutive datagrams, in protocol milliseconds.
QList<qint64> gaps(const QList<HomebrewMaster::Datagram>& list)
{
    QList<qint64> out;
    for (qsizetype i = 1; i < list.size(); ++i)
        out.append(list.at(i).ms - list.at(i - 1).ms);
    return out;
}

} // namespace

class TestDmrPeerClient : public QObject {
    Q_OBJECT

private slots:
    // Login, a login again after the master closes the link, and RPTCL as the last word on stop.
    void loginReloginAfterCloseAndGoodbyeOnStop()
    {
        Rig rig(1);
        QSignalSpy changes(&rig.client, &DmrPeerClient::stateChanged);
        QTest::ignoreMessage(QtInfoMsg, "DmrPeer Test resolved 127.0.0.1 -> 127.0.0.1 peerId 240000001");
        QTest::ignoreMessage(QtInfoMsg, "DmrPeer Test logged in");
        QVERIFY(rig.login());
        QCOMPARE(states(changes), (QList<DmrPeerClient::State>{DmrPeerClient::Resolving, DmrPeerClient::WaitingLogin,
                                                               DmrPeerClient::WaitingAuth, DmrPeerClient::WaitingConfig,
                                                               DmrPeerClient::Running}));
        QCOMPARE(rig.client.stateText(), QString("connected"));
        const QList<HomebrewMaster::Datagram> got = rig.master.received();
        QCOMPARE(got.at(0).data, QByteArray("RPTL") + be32(kPeerId));
        QCOMPARE(got.at(1).data.size(), 40);
        QCOMPARE(got.at(2).data.size(), 302);

        changes.clear();
        QTest::ignoreMessage(QtInfoMsg, "DmrPeer Test master closing");
        rig.master.closePeer(kPeerId);
        QTRY_COMPARE(rig.master.receivedWith("RPTL").size(), 2);
        QTRY_COMPARE(rig.client.state(), DmrPeerClient::Running);
        QCOMPARE(states(changes).constFirst(), DmrPeerClient::WaitingLogin);
        QVERIFY(rig.master.isLoggedIn(kPeerId));

        QTest::ignoreMessage(QtInfoMsg, "DmrPeer Test DISCONNECT (sending RPTCL goodbye)");
        rig.client.stop();
        QCOMPARE(rig.client.state(), DmrPeerClient::Idle);
        QTRY_COMPARE(rig.master.received().constLast().data, QByteArray("RPTCL") + be32(kPeerId));
        const qsizetype count = rig.master.received().size();
        QVERIFY(!QTest::qWaitFor([&] { return rig.master.received().size() > count; }, 500));
        QVERIFY(!rig.master.isLoggedIn(kPeerId));
    }

    void optionsGoOutAfterConfig()
    {
        Rig rig(1, [](DmrPeerClient::Profile& p) { p.options = QStringLiteral("TS2=91;DIAL=0"); });
        rig.client.start();
        QTRY_COMPARE(rig.master.optionsOf(kPeerId), QByteArray("TS2=91;DIAL=0"));
        QCOMPARE(rig.master.receivedWith("RPTO").constFirst().data,
                 QByteArray("RPTO") + be32(kPeerId) + "TS2=91;DIAL=0");
        rig.client.stop();
    }

    void wrongPasswordRetriesTwiceThenStops()
    {
        Rig rig(10, [](DmrPeerClient::Profile& p) { p.password = QStringLiteral("wrong"); });
        QSignalSpy changes(&rig.client, &DmrPeerClient::stateChanged);
        QSignalSpy errors(&rig.client, &DmrPeerClient::errorReported);
        QTest::ignoreMessage(QtInfoMsg, QRegularExpression("^DmrPeer Test (resolved|retry after|MSTNAK|giving up)"));
        rig.client.start();
        QTRY_COMPARE_WITH_TIMEOUT(errors.count(), 3, 10000);
        const QString finalText = "rejected: wrong password / API key — stopped after 3 attempts. Fix credentials "
                                  "and toggle the peer off/on to retry.";
        QCOMPARE(errors.at(0).at(0).toString(), QString("rejected: wrong password / API key"));
        QCOMPARE(errors.at(1).at(0).toString(), QString("rejected: wrong password / API key"));
        QCOMPARE(errors.at(2).at(0).toString(), finalText);
        QCOMPARE(rig.client.stateText(), finalText);
        QCOMPARE(states(changes).count(DmrPeerClient::Failed), 3);

        const QList<HomebrewMaster::Datagram> logins = rig.master.receivedWith("RPTL");
        QCOMPARE(logins.size(), 3);
        const QList<qint64> g = gaps(logins);
        QVERIFY2(onTime(g.at(0), 2000), qPrintable(QString::number(g.at(0))));
        QVERIFY2(onTime(g.at(1), 4000), qPrintable(QString::number(g.at(1))));
        // Final: nothing more goes out.
        QVERIFY(!QTest::qWaitFor([&] { return rig.master.receivedWith("RPTL").size() > 3; }, 1000));
        QCOMPARE(rig.client.state(), DmrPeerClient::Failed);

        // The user fixes the password and toggles the peer: a fresh login works.
        rig.profile.password = kPassword;
        rig.client.setProfile(rig.profile);
        rig.client.stop();
        QVERIFY(rig.login());
    }

    void goodLoginResetsTheAttemptCount()
    {
        Rig rig(1);
        QVERIFY(rig.login());
        // Let the first keep-alive be answered, so that no MSTNAK to a ping crosses the new login.
        QTRY_COMPARE(rig.master.receivedWith("RPTPING").size(), 1);
        // The master's password changes: one rejection, then it is changed back.
        rig.master.addPeer(kPeerId, QStringLiteral("changed"));
        QTest::ignoreMessage(QtInfoMsg, "DmrPeer Test MSTNAK — rejected: wrong password / API key (attempt 1 of 3)");
        rig.master.closePeer(kPeerId);
        QTRY_COMPARE(rig.client.state(), DmrPeerClient::Failed);
        rig.master.addPeer(kPeerId, kPassword);
        QTRY_COMPARE_WITH_TIMEOUT(rig.client.state(), DmrPeerClient::Running, 5000);
        rig.master.addPeer(kPeerId, QStringLiteral("changed"));
        QTest::ignoreMessage(QtInfoMsg, "DmrPeer Test MSTNAK — rejected: wrong password / API key (attempt 1 of 3)");
        rig.master.closePeer(kPeerId);
        QTRY_COMPARE(rig.client.state(), DmrPeerClient::Failed);
    }

    void masterDownFor70SecondsIsFoundAgain()
    {
        Rig rig(20);
        rig.master.setSilent(true);
        QTest::ignoreMessage(QtInfoMsg, QRegularExpression("^DmrPeer Test (resolved|no response|—|retry)"));
        QTest::ignoreMessage(QtInfoMsg, "DmrPeer Test logged in");
        const qint64 startedAt = rig.clock.now();
        rig.client.start();
        QTRY_VERIFY_WITH_TIMEOUT(rig.client.stateText().startsWith("reconnecting in "), 5000);
        QCOMPARE(rig.client.state(), DmrPeerClient::Failed);
        // Three logins 4 s apart, then a wait that doubles from 2 s before the next three.
        QTRY_VERIFY_WITH_TIMEOUT(rig.master.receivedWith("RPTL").size() >= 8, 10000);
        const QList<qint64> between = gaps(rig.master.receivedWith("RPTL"));
        const qint64 expected[] = {4000, 4000, 6000, 4000, 4000, 8000, 4000};
        for (int i = 0; i < 7; ++i)
            QVERIFY2(onTime(between.at(i), expected[i]), qPrintable(QString::number(between.at(i))));
        // Back after 70 s: the next attempt logs in, with nothing touched by the user.
        QVERIFY(QTest::qWaitFor([&] { return rig.clock.now() - startedAt >= 70000; }, 10000));
        rig.master.setSilent(false);
        QTRY_COMPARE_WITH_TIMEOUT(rig.client.state(), DmrPeerClient::Running, 10000);
        QVERIFY(rig.master.isLoggedIn(kPeerId));
        QVERIFY2(rig.clock.now() - startedAt < 100000, qPrintable(QString::number(rig.clock.now() - startedAt)));
    }

    void pingsEveryFiveSecondsAndReloginAfterSilence()
    {
        Rig rig(10);
        QVERIFY(rig.login());
        QTRY_VERIFY_WITH_TIMEOUT(rig.master.receivedWith("RPTPING").size() >= 4, 5000);
        const QList<HomebrewMaster::Datagram> pings = rig.master.receivedWith("RPTPING");
        QCOMPARE(pings.constFirst().data, QByteArray("RPTPING") + be32(kPeerId));
        for (qint64 gap : gaps(pings))
            QVERIFY2(onTime(gap, 5000), qPrintable(QString::number(gap)));
        QCOMPARE(rig.master.receivedWith("RPTL").size(), 1); // answered pings keep the link

        // The master stops answering: after 30 s without anything the client logs in again.
        QTest::ignoreMessage(QtInfoMsg, QRegularExpression("^DmrPeer Test no rx for 3[01] s — re-login$"));
        QTest::ignoreMessage(QtInfoMsg, QRegularExpression("^DmrPeer Test no response"));
        QTest::ignoreMessage(QtInfoMsg, "DmrPeer Test logged in");
        const qint64 silentFrom = rig.clock.now();
        rig.master.setSilent(true);
        QTRY_COMPARE_WITH_TIMEOUT(rig.master.receivedWith("RPTL").size(), 2, 6000);
        const qint64 relogin = rig.master.receivedWith("RPTL").constLast().ms - silentFrom;
        QVERIFY2(relogin > 24500 && relogin < 30500, qPrintable(QString::number(relogin)));
        rig.master.setSilent(false);
        QTRY_COMPARE_WITH_TIMEOUT(rig.client.state(), DmrPeerClient::Running, 5000);
        QVERIFY(rig.master.isLoggedIn(kPeerId));
        // Still usable: voice from the master reaches the client.
        QSignalSpy frames(&rig.client, &DmrPeerClient::dmrFrameReceived);
        rig.master.sendToPeer(kPeerId, dmrd(0, 77, 0x21 | 0x00));
        rig.master.sendToPeer(kPeerId, dmrd(1, 77, 0x22));
        QTRY_COMPARE(frames.count(), 2);
    }

    void incompleteProfileNeverSends_data()
    {
        QTest::addColumn<quint32>("peerId");
        QTest::addColumn<QString>("host");
        QTest::newRow("peer-ID 0") << 0u << "127.0.0.1";
        QTest::newRow("no host") << kPeerId << "";
    }

    void incompleteProfileNeverSends()
    {
        QFETCH(quint32, peerId);
        QFETCH(QString, host);
        Rig rig(1, [&](DmrPeerClient::Profile& p) {
            p.peerId = peerId;
            p.host = host;
        });
        QSignalSpy errors(&rig.client, &DmrPeerClient::errorReported);
        rig.client.start();
        QCOMPARE(rig.client.state(), DmrPeerClient::Failed);
        QCOMPARE(errors.count(), 1);
        QCOMPARE(rig.client.stateText(), QString("missing host or peerId in profile"));
        QVERIFY(!QTest::qWaitFor([&] { return !rig.master.received().isEmpty(); }, 300));
        rig.client.stop();
        QCOMPARE(rig.client.state(), DmrPeerClient::Idle);
    }

    void configurationBytes_data()
    {
        QTest::addColumn<DmrPeerClient::Profile>("profile");
        QTest::addColumn<QByteArray>("expected");

        DmrPeerClient::Profile a;
        a.callsign = "XX0ABC";
        a.rxFreq = 438500000;
        a.txFreq = 430900000;
        a.power = 5;
        a.colorCode = 1;
        a.latitude = 59.3293f;
        a.longitude = 18.0686f;
        a.height = 123;
        a.locationName = "Stockholm";
        a.description = "hotspot";
        a.url = "https://example.org";
        a.versionString = "20240101";
        a.softwareName = "zephyrlake";
        QTest::newRow("simplex") << a
                                 << QByteArray("XX0ABC  438500000430900000"
                                               "0501+59.3293+018.0686000"
                                               "Stockholm           hotspot            4") +
                                        "https://example.org" + QByteArray(105, ' ') + "20240101" +
                                        QByteArray(32, ' ') + "zephyrlake" + QByteArray(30, ' ');

        DmrPeerClient::Profile b;
        b.callsign = "ABCDEFGHIJ";
        b.rxFreq = 145000000;
        b.txFreq = 1234567890;
        b.power = 150;
        b.colorCode = 12;
        b.latitude = -33.8688f;
        b.longitude = -151.2093f;
        b.locationName = "A location name longer than twenty";
        b.description = "exactly nineteen ch";
        b.duplex = true;
        b.ts1Tg = 1;
        b.ts2Tg = 4000;
        b.url = QString(130, 'u');
        QTest::newRow("cut and clamped") << b
                                         << QByteArray("ABCDEFGH145000000123456789"
                                                       "9912-33.8688-151.2093000"
                                                       "A location name long"
                                                       "exactly nineteen ch"
                                                       "1") +
                                                QByteArray(124, 'u') + QByteArray(80, ' ');

        DmrPeerClient::Profile c;
        c.duplex = true;
        c.ts1Tg = 0;
        c.ts2Tg = 91;
        const QByteArray zeroHead("        433000000433000000"
                                  "0101+00.0000+000.0000000");
        QTest::newRow("zero, slot 2") << c << zeroHead + QByteArray(39, ' ') + "2" + QByteArray(204, ' ');
        c.ts1Tg = 9;
        QTest::newRow("both slots") << c << zeroHead + QByteArray(39, ' ') + "3" + QByteArray(204, ' ');
        c.ts1Tg = 4000;
        c.ts2Tg = 0;
        QTest::newRow("no slot") << c << zeroHead + QByteArray(39, ' ') + "0" + QByteArray(204, ' ');
    }

    void configurationBytes()
    {
        QFETCH(DmrPeerClient::Profile, profile);
        QFETCH(QByteArray, expected);
        Rig rig(1, [&](DmrPeerClient::Profile& p) {
            profile.host = p.host;
            profile.port = p.port;
            profile.peerId = p.peerId;
            profile.password = p.password;
            profile.networkName = p.networkName;
            p = profile;
        });
        QVERIFY(rig.login());
        const QByteArray rptc = rig.master.configOf(kPeerId);
        QCOMPARE(rptc.size(), 302);
        QCOMPARE(rptc.left(8), QByteArray("RPTC") + be32(kPeerId));
        QCOMPARE(rptc.mid(8), expected);
    }

    void shortSaltDoesNotAdvance()
    {
        Rig rig(1);
        rig.master.setSilent(true);
        rig.client.start();
        QTRY_COMPARE(rig.master.received().size(), 1);
        QSignalSpy frames(&rig.client, &DmrPeerClient::dmrFrameReceived);
        for (int n = 0; n <= 9; ++n)
            rig.master.sendTo(rig.clientPort(), QByteArray("RPTACK\1\2\3").left(n));
        rig.master.sendTo(rig.clientPort(), dmrd(0, 5).left(12)); // marker: delivered unprocessed
        QTRY_COMPARE(frames.count(), 1);
        QCOMPARE(rig.client.state(), DmrPeerClient::WaitingLogin);
        QCOMPARE(rig.master.received().size(), 1);
        rig.master.sendTo(rig.clientPort(), QByteArray("RPTACK\1\2\3\4"));
        QTRY_COMPARE(rig.client.state(), DmrPeerClient::WaitingAuth);
        QTRY_COMPARE(rig.master.receivedWith("RPTK").size(), 1);
    }

    // Cut-off messages of every kind change nothing (crashes are the fuzz target's).
    void malformedDatagramsChangeNothing()
    {
        Rig rig(1, [](DmrPeerClient::Profile& p) { p.rxJitterMs = 0; });
        QVERIFY(rig.login());
        QSignalSpy changes(&rig.client, &DmrPeerClient::stateChanged);
        QSignalSpy frames(&rig.client, &DmrPeerClient::dmrFrameReceived);
        quint32 marker = 0xfeed0000;
        for (const QByteArray& whole : {dmrd(0, 1), QByteArray("RPTACK\1\2\3\4"), QByteArray("MSTPONG") + be32(kPeerId),
                                        QByteArray("MSTNAK") + be32(kPeerId), QByteArray("MSTCL") + be32(kPeerId),
                                        QByteArray("RPTSBKN") + be32(kPeerId), QByteArray("x", 1)}) {
            for (qsizetype n = 0; n < qMin<qsizetype>(whole.size(), 52); ++n) {
                // A bare MSTNAK or MSTCL is a whole message, not a cut-off one.
                if (!whole.left(n).startsWith("MSTNAK") && !whole.left(n).startsWith("MSTCL"))
                    rig.master.sendToPeer(kPeerId, whole.left(n));
            }
            // A good frame behind each batch shows that the batch was read.
            const QByteArray good = dmrd(9, ++marker);
            rig.master.sendToPeer(kPeerId, good);
            QTRY_VERIFY(!frames.isEmpty() && frames.constLast().at(0).toByteArray() == good);
        }
        QCOMPARE(states(changes), QList<DmrPeerClient::State>());
        QCOMPARE(rig.client.state(), DmrPeerClient::Running);
    }

    // The call's signals as the client gives them: heard with its addresses, each frame decoded before it
    // is handed on, a new stream ending the old one at once, the last ending 1500 ms after its last frame.
    void streamsAreHeardAndEnded()
    {
        Rig rig(5);
        QVERIFY(rig.login());
        QStringList events;
        QList<QVariantList> heard;
        qint64 endedAt = 0, duration = 0;
        connect(&rig.client, &DmrPeerClient::rxStreamHeard, this,
                [&](uint src, uint dst, uchar slot, uint stream, bool privateCall) {
                    heard.append({src, dst, slot, stream, privateCall});
                    events.append(QString("heard %1").arg(stream));
                });
        connect(&rig.client, &DmrPeerClient::rxStreamEnded, this, [&](uint stream, qint64 ms) {
            events.append(QString("ended %1").arg(stream));
            endedAt = rig.clock.now();
            duration = ms;
        });
        connect(&rig.client, &DmrPeerClient::voiceFrameForDecode, this, [&] { events.append("decode"); });
        connect(&rig.client, &DmrPeerClient::dmrFrameReceived, this, [&](const QByteArray& d) {
            events.append(QString("frame %1/%2").arg(qFromBigEndian<quint32>(d.constData() + 16)).arg(int(d.at(4))));
        });
        rig.master.sendToPeer(kPeerId, dmrd(0, 1));
        rig.master.sendToPeer(kPeerId, dmrd(0, 2));
        QTRY_COMPARE(events.size(), 7);
        QCOMPARE(events, (QStringList{"heard 1", "ended 1", "heard 2", "decode", "frame 1/0", "decode", "frame 2/0"}));
        events.clear();

        const quint8 header = 0x80 | 0x40 | 0x20 | 0x01; // slot 2, private, voice LC header
        const qint64 first = rig.clock.now();
        rig.master.sendToPeer(kPeerId, dmrd(0, 0x1234, header, 2400000, 2400001));
        QTRY_COMPARE(events.size(), 4);
        const qint64 last = rig.clock.now();
        rig.master.sendToPeer(kPeerId, dmrd(1, 0x1234, 0x82));
        QTRY_COMPARE_WITH_TIMEOUT(events.size(), 7, 3000);
        QCOMPARE(events.mid(4), (QStringList{"decode", "frame 4660/1", "ended 4660"}));
        QCOMPARE(heard.last(), (QVariantList{2400000u, 2400001u, uchar(2), 0x1234u, true}));
        const qint64 slack = 40 * rig.clock.factor();
        QVERIFY2(qAbs(duration - (last - first)) <= slack, qPrintable(QString::number(duration)));
        const qint64 quiet = endedAt - (first + duration);
        QVERIFY2(quiet >= 1500 && quiet <= 1700 + slack, qPrintable(QString::number(quiet)));
    }

    // Without a jitter buffer frames go on as they come; data bursts start no call.
    void zeroJitterAndDataBursts()
    {
        Rig rig(1, [](DmrPeerClient::Profile& p) { p.rxJitterMs = 0; });
        QVERIFY(rig.login());
        QSignalSpy heard(&rig.client, &DmrPeerClient::rxStreamHeard);
        QList<int> seqs;
        connect(&rig.client, &DmrPeerClient::dmrFrameReceived, this,
                [&](const QByteArray& d) { seqs.append(d.at(4)); });
        rig.master.sendToPeer(kPeerId, dmrd(5, 8, 0x26)); // data header
        rig.master.sendToPeer(kPeerId, dmrd(6, 8, 0x27)); // rate 1/2 data
        for (quint8 s : {2, 0, 1})
            rig.master.sendToPeer(kPeerId, dmrd(s, 9, 0x21));
        QTRY_COMPARE(seqs, (QList<int>{2, 0, 1}));
        QCOMPARE(heard.count(), 1);
        QCOMPARE(heard.constFirst().at(3).toUInt(), 9u);
    }

    void voiceFramesGoToTheOtherPeers()
    {
        constexpr quint32 kListenerId = 240000002;
        Rig rig(1);
        QVERIFY(!rig.client.voiceLink()->sendVoiceHeader(2, 2400000, 91, 0xabcd, 0, false)); // not logged in yet
        QVERIFY(rig.login());

        rig.master.addPeer(kListenerId, kPassword);
        DmrPeerClient listener;
        DmrPeerClient::Profile p = rig.profile;
        p.peerId = kListenerId;
        p.rxJitterMs = 0;
        listener.setProfile(p);
        QSignalSpy heard(&listener, &DmrPeerClient::dmrFrameReceived);
        listener.start();
        QTRY_COMPARE(listener.state(), DmrPeerClient::Running);

        const QByteArray voice(33, char(0x5a));
        QVERIFY(rig.client.voiceLink()->sendVoiceHeader(2, 2400000, 91, 0xabcd, 0, false));
        QVERIFY(rig.client.voiceLink()->sendVoiceBurst(2, 2400000, 91, 0xabcd, 1, 0, voice, false));
        QVERIFY(rig.client.voiceLink()->sendVoiceBurst(1, 2400000, 2400001, 0xabcd, 2, 3, voice, true));
        QVERIFY(rig.client.voiceLink()->sendVoiceTerminator(1, 2400000, 2400001, 0xabcd, 3, true));
        QTRY_COMPARE(heard.count(), 4);

        const QList<HomebrewMaster::Datagram> sent = rig.master.receivedWith("DMRD");
        QCOMPARE(sent.size(), 4);
        const QByteArray expectedFlags("\xA1\x90\x43\x62", 4);
        for (int i = 0; i < 4; ++i) {
            const QByteArray out = sent.at(i).data;
            const QByteArray in = heard.at(i).at(0).toByteArray();
            QCOMPARE(out.size(), 55);
            QCOMPARE(int(quint8(out.at(4))), i);
            QCOMPARE(out.mid(5, 3), be24(2400000));
            QCOMPARE(out.mid(11, 4), be32(kPeerId));
            QCOMPARE(out.at(15), expectedFlags.at(i));
            QCOMPARE(out.mid(16, 4), be32(0xabcd));
            QCOMPARE(out.right(2), QByteArray(2, '\0'));
            // The master hands the frame on unchanged but for the receiver's peer-ID.
            QCOMPARE(in.mid(11, 4), be32(kListenerId));
            QCOMPARE(in.left(11) + in.mid(15), out.left(11) + out.mid(15));
        }
        QCOMPARE(sent.at(1).data.mid(20, 33), voice);
        QCOMPARE(sent.at(2).data.mid(8, 3), be24(2400001));

        // Header and terminator carry the link control.
        for (int i : {0, 3}) {
            const QByteArray burst = sent.at(i).data.mid(20, 33);
            const auto lc = zl::dmr::fullLcDecode(reinterpret_cast<const uint8_t*>(burst.constData()), i == 0 ? 1 : 2);
            QVERIFY(lc.has_value());
            QCOMPARE(lc->srcId, 2400000u);
            QCOMPARE(lc->dstId, i == 0 ? 91u : 2400001u);
            QCOMPARE(int(lc->FLCO), i == 0 ? 0 : 3);
        }

        rig.client.stop();
        QVERIFY(!rig.client.voiceLink()->sendVoiceBurst(2, 2400000, 91, 0xabcd, 4, 1, voice, false));
        listener.stop();
    }
};

QTEST_GUILESS_MAIN(TestDmrPeerClient)
#include "tst_dmrpeerclient.moc"
