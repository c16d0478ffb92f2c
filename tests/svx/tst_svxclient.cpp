// SvxReflectorClient against a loopback reflector speaking protocol versions 2 and 3.
#include "LogCapture.h"
#include "Pcm.h"
#include "SvxReflector.h"
#include "TempConfigHome.h"
#include "app/Identity.h"
#include "svx/SvxReflectorClient.h"
#include "svx/SvxReflectorConfig.h"

#include <QFile>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QUdpSocket>

#include <memory>

using zl::svx::SvxReflectorClient;
using State = SvxReflectorClient::State;

namespace {

constexpr int kSlow = 15000;

std::unique_ptr<SvxReflectorClient> makeClient(const SvxReflector& reflector, const QString& callsign,
                                               const QString& password = QStringLiteral("secret"))
{
    auto client = std::make_unique<SvxReflectorClient>();
    client->setServer(" 127.0.0.1 ", reflector.port());
    client->setCallsign(callsign);
    client->setAuthKey(password);
    client->setTiming({20, 100});
    return client;
}

void tick(SvxReflectorClient& client, int n = 1)
{
    for (int i = 0; i < n; ++i)
        QMetaObject::invokeMethod(&client, "onHeartbeatTick");
}

QByteArray toneFrame(int index, double hz = 500)
{
    return pcm::tone(160, hz, 8000, 8000, index * 160);
}

// A 20 ms Opus frame of silence (CELT, full band): the packet decoders take as the shortest valid one.
const QByteArray kOpusSilence = QByteArray::fromHex("f8fffe");

QList<quint16> frameTypes(const SvxReflector& reflector)
{
    QList<quint16> types;
    for (const SvxReflector::Frame& f : reflector.receivedFrames)
        types.append(f.type);
    return types;
}

} // namespace

class TestSvxClient : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() { qRegisterMetaType<State>(); }

    void refusesToStartWithoutSettings()
    {
        SvxReflectorClient client;
        QSignalSpy errors(&client, &SvxReflectorClient::errorReported);
        client.setServer("127.0.0.1", 5300);
        client.start();
        QCOMPARE(client.state(), State::Failed);
        QCOMPARE(client.statusText(), QStringLiteral("no callsign"));
        client.setCallsign(" sm0a ");
        client.start();
        QCOMPARE(client.statusText(), QStringLiteral("no auth key"));
        client.setAuthKey("k");
        client.setServer("  ", 5300);
        client.start();
        QCOMPARE(client.statusText(), QStringLiteral("no server"));
        client.setServer("127.0.0.1", 0);
        client.start();
        QCOMPARE(errors.size(), 4);
        QCOMPARE(errors.last().first().toString(), QStringLiteral("no server"));
    }

    void loginV2NodeListAndErrors()
    {
        SvxReflector reflector;
        reflector.setPassword("SM0A", "secret");
        reflector.setPassword("SM0B", "other");
        auto a = makeClient(reflector, "sm0a");
        a->setNodeInfo(R"({"sw":"zephyrlake"})");
        QSignalSpy states(a.get(), &SvxReflectorClient::stateChanged);
        QSignalSpy nodes(a.get(), &SvxReflectorClient::nodesUpdated);
        a->start();
        QCOMPARE(a->state(), State::Connecting);
        QTRY_COMPARE_WITH_TIMEOUT(a->state(), State::Connected, kSlow);
        QCOMPARE(states.size(), 3);
        QCOMPARE(states.at(1).first().value<State>(), State::Authenticating);
        QCOMPARE(a->statusText(), QStringLiteral("connected"));

        // ProtoVer 2.0 first, then the answer to the challenge, the node info, and once UDP
        // came back the idle talk group.
        QCOMPARE(reflector.receivedFrames.first().type, quint16(5));
        QCOMPARE(reflector.receivedFrames.first().payload.toHex(), QByteArray("00020000"));
        QVERIFY(frameTypes(reflector).contains(11));
        SvxReflector::Node* node = reflector.node("SM0A");
        QVERIFY(node);
        QCOMPARE(node->nodeInfo, QStringLiteral(R"({"sw":"zephyrlake"})"));
        QTRY_COMPARE(node->selections, QList<quint32>({0}));
        QCOMPARE(a->nodes(), QStringList({"SM0A"}));

        auto b = makeClient(reflector, "SM0B", "other");
        b->start();
        QTRY_COMPARE_WITH_TIMEOUT(a->nodes(), QStringList({"SM0A", "SM0B"}), kSlow);
        QCOMPARE(nodes.last().first().toStringList(), QStringList({"SM0A", "SM0B"}));
        b->stop();
        QCOMPARE(b->state(), State::Disconnected);
        QTRY_COMPARE(a->nodes(), QStringList({"SM0A"}));

        // A server error fails the client; the server's close then leads back to connecting.
        QSignalSpy errors(a.get(), &SvxReflectorClient::errorReported);
        reflector.broadcast(13, SvxReflector::str("Going down"));
        QTRY_COMPARE(a->state(), State::Failed);
        QCOMPARE(a->statusText(), QStringLiteral("Going down"));
        QCOMPARE(errors.first().first().toString(), QStringLiteral("Going down"));
        reflector.dropAll();
        QTRY_COMPARE(a->state(), State::Connecting);
        QVERIFY(a->nodes().isEmpty());
        a->stop();
    }

    void wrongPasswordAndMissingOpus()
    {
        SvxReflector reflector;
        reflector.setPassword("SM0A", "secret");
        auto a = makeClient(reflector, "SM0A", "wrong");
        QSignalSpy errors(a.get(), &SvxReflectorClient::errorReported);
        QSignalSpy states(a.get(), &SvxReflectorClient::stateChanged);
        a->start();
        QTRY_VERIFY_WITH_TIMEOUT(!errors.isEmpty(), kSlow);
        QCOMPARE(errors.first().first().toString(), QStringLiteral("Access denied"));
        // Failed, and still running: the connection the reflector closed is retried.
        QTRY_VERIFY(states.size() >= 5);
        QCOMPARE(states.at(2).first().value<State>(), State::Failed);
        QCOMPARE(states.at(3).first().value<State>(), State::Connecting);
        QTRY_VERIFY(reflector.receivedFrames.size() >= 4);
        a->stop();

        reflector.setCodecs({"GSM", "SPEEX"});
        auto b = makeClient(reflector, "SM0A");
        QSignalSpy bErrors(b.get(), &SvxReflectorClient::errorReported);
        b->start();
        QVERIFY(bErrors.wait(kSlow));
        QCOMPARE(bErrors.first().first().toString(),
                 QStringLiteral("reflector does not offer the Opus codec (zephyrlake only supports Opus)"));
        QCOMPARE(b->state(), State::Authenticating);
        QVERIFY(!frameTypes(reflector).contains(111));
        QVERIFY(reflector.receivedDatagrams.isEmpty());
        b->stop();

        // An empty codec list passes.
        reflector.setCodecs({});
        auto c = makeClient(reflector, "SM0A");
        c->start();
        QTRY_COMPARE_WITH_TIMEOUT(c->state(), State::Connected, kSlow);
    }

    void talkGroupsMonitorFollowAndHangTime()
    {
        SvxReflector reflector;
        reflector.setPassword("SM0A", "secret");
        auto a = makeClient(reflector, "SM0A");
        a->setTiming({3600000, 100}); // ticks are stepped by hand
        a->setMonitorTalkGroups({240, 91, 240});
        a->setHangTime(3);
        QSignalSpy talkers(a.get(), &SvxReflectorClient::talkerStart);
        QSignalSpy stops(a.get(), &SvxReflectorClient::talkerStop);
        a->start();
        QTRY_COMPARE_WITH_TIMEOUT(a->state(), State::Connected, kSlow);
        SvxReflector::Node* node = reflector.node("SM0A");
        QTRY_COMPARE(node->monitored, QList<quint32>({91, 240}));
        QCOMPARE(node->selections, QList<quint32>({0}));

        auto talker = [&](quint16 type, quint32 tg, const QString& cs) {
            reflector.broadcast(type, SvxReflector::u32(tg) + SvxReflector::str(cs));
        };
        talker(104, 91, "SM9X");
        QTRY_COMPARE(node->selections, QList<quint32>({0, 91}));
        QCOMPARE(talkers.first().at(0).toUInt(), 91u);
        QCOMPARE(talkers.first().at(1).toString(), QStringLiteral("SM9X"));
        // A monitored talk group while 91 is held changes nothing, and neither does one that
        // isn't monitored.
        talker(104, 240, "SM8Y");
        talker(104, 9, "SM7Z");
        talker(105, 91, "SM9X");
        QTRY_COMPARE(stops.size(), 1);
        QCOMPARE(talkers.size(), 3);
        QCOMPARE(node->selections, QList<quint32>({0, 91}));

        // The hold runs three ticks; a talker on the held group renews it.
        tick(*a, 2);
        talker(104, 91, "SM9X");
        QTRY_COMPARE(talkers.size(), 4);
        tick(*a, 2);
        QTest::ignoreMessage(QtInfoMsg, "SvxReflectorClient: hang expired -> idle (TG 0");
        tick(*a);
        QTRY_COMPARE(node->selections, QList<quint32>({0, 91, 0}));
        tick(*a, 5);

        // Now 240 can be followed.
        talker(104, 240, "SM8Y");
        QTRY_COMPARE(node->selections, QList<quint32>({0, 91, 0, 240}));
        tick(*a, 3);
        QTRY_COMPARE(node->selections.size(), 5);

        // The transmit group is selected at key-down only; a change while talking waits.
        a->selectTalkGroup(9);
        a->setTalking(true);
        QTRY_COMPARE(node->selections.size(), 6);
        QCOMPARE(node->selections.last(), 9u);
        // However long we talk, the group is kept; its hang time runs from key-up. Keying
        // again inside the hold (same group, nothing re-selected) must not let it run down
        // either. (The reflector's heartbeats keep the connection alive meanwhile.)
        reflector.setHeartbeatInterval(10);
        a->setHangTime(30);
        auto seconds = [&](int n) {
            for (int i = 0; i < n; ++i) {
                tick(*a);
                QTest::qWait(15);
            }
        };
        a->setTalking(false);
        seconds(5);
        a->setTalking(true);
        a->selectTalkGroup(2000);
        seconds(45);
        a->setTalking(false);
        seconds(29);
        QCOMPARE(node->selections.size(), 6);
        QTest::ignoreMessage(QtInfoMsg, "SvxReflectorClient: hang expired -> idle (TG 0");
        tick(*a);
        QTRY_COMPARE(node->selections.size(), 7);
        QCOMPARE(node->selections.last(), 0u);
        a->setTalking(true);
        QTRY_COMPARE(node->selections.size(), 8);
        QCOMPARE(node->selections.last(), 2000u);
        a->setTalking(false);
    }

    void heartbeatsAndTimeouts()
    {
        SvxReflector reflector;
        reflector.setPassword("SM0A", "secret");
        reflector.setHeartbeatInterval(30);
        auto a = makeClient(reflector, "SM0A");
        a->setTiming({10, 100000});
        a->setUdpHeartbeat(2);
        a->start();
        QTRY_COMPARE_WITH_TIMEOUT(a->state(), State::Connected, kSlow);
        // Silence on our side: a TCP heartbeat every ten ticks, UDP every two.
        QTRY_VERIFY(frameTypes(reflector).count(1) >= 2);
        QTRY_VERIFY(reflector.receivedDatagrams.size() >= 10);

        // UDP silence: the link is dropped after sixty ticks.
        QSignalSpy errors(a.get(), &SvxReflectorClient::errorReported);
        QSignalSpy states(a.get(), &SvxReflectorClient::stateChanged);
        reflector.setUdpSilent(true);
        QTRY_COMPARE_WITH_TIMEOUT(a->state(), State::Connecting, kSlow);
        QCOMPARE(a->lastErrorText(), QStringLiteral("UDP heartbeat timeout"));
        QTRY_COMPARE(reflector.nodes().size(), 0);
        a->stop();

        // TCP silence: the fifteenth silent tick reports it once, closes, and the reconnect timer takes over.
        reflector.setUdpSilent(false);
        reflector.setHeartbeatInterval(0);
        auto b = makeClient(reflector, "SM0A");
        b->setTiming({3600000, 100000}); // ticks are stepped by hand, without the event loop
        b->start();
        QTRY_COMPARE_WITH_TIMEOUT(b->state(), State::Connected, kSlow);
        QSignalSpy bErrors(b.get(), &SvxReflectorClient::errorReported);
        reflector.setTcpSilent(true);
        reflector.setUdpSilent(true);
        tick(*b, 14);
        QVERIFY(bErrors.isEmpty());
        tick(*b);
        QCOMPARE(bErrors.size(), 1);
        QCOMPARE(bErrors.first().first().toString(), QStringLiteral("TCP heartbeat timeout"));
        QTRY_COMPARE(b->state(), State::Connecting);
        QCOMPARE(b->lastErrorText(), QStringLiteral("TCP heartbeat timeout"));
        tick(*b, 20);
        QCOMPARE(bErrors.size(), 1);
    }

    void reconnectsAfterALostConnection()
    {
        SvxReflector reflector;
        reflector.setPassword("SM0A", "secret");
        auto a = makeClient(reflector, "SM0A");
        a->setMonitorTalkGroups({91, 240});
        QSignalSpy logins(&reflector, &SvxReflector::nodeLoggedIn);
        QSignalSpy pcm(a.get(), &SvxReflectorClient::pcmReady);
        a->start();
        QTRY_COMPARE_WITH_TIMEOUT(a->state(), State::Connected, kSlow);
        reflector.dropAll();
        QTRY_COMPARE(a->state(), State::Connecting);
        QTRY_COMPARE_WITH_TIMEOUT(logins.size(), 2, kSlow);
        // The new login verifies the UDP path again and tells the reflector what to send:
        // usable both ways without touching anything.
        QTRY_COMPARE_WITH_TIMEOUT(a->state(), State::Connected, kSlow);
        QTRY_COMPARE(reflector.nodes().size(), 1);
        SvxReflector::Node* node = reflector.node("SM0A");
        QTRY_COMPARE(node->monitored, QList<quint32>({91, 240}));
        reflector.sendAudio(node, kOpusSilence);
        QTRY_COMPARE(pcm.size(), 1);
        a->setTalking(true);
        for (int i = 0; i < 4; ++i)
            a->pushMicPcm(toneFrame(i));
        QTRY_COMPARE(reflector.receivedAudio.size(), 4);
        a->setTalking(false);
        a->stop();
        QCOMPARE(a->state(), State::Disconnected);
        QCOMPARE(a->statusText(), QStringLiteral("idle"));
        QTRY_COMPARE(reflector.nodes().size(), 0);
    }

    void audioRelayedBetweenNodesV2() { audioRelayedBetweenNodes(false); }
    void audioRelayedBetweenNodesV3() { audioRelayedBetweenNodes(true); }

    void v3EnrolmentSealedUdpAndBadTags()
    {
        QTemporaryDir pkiDir;
        SvxReflector reflector;
        reflector.setPassword("SM0A", "secret");
        auto a = makeClient(reflector, "SM0A");
        a->setProtocolV3(true);
        a->setAutoPki(true, pkiDir.path());
        a->setCertFields("op@example.org", "");
        QSignalSpy errors(a.get(), &SvxReflectorClient::errorReported);
        a->start();
        QTRY_COMPARE_WITH_TIMEOUT(errors.size(), 1, kSlow);
        QCOMPARE(errors.first().first().toString(),
                 QStringLiteral("Certificate signed by the reflector — reconnect to use it"));
        QCOMPARE(frameTypes(reflector).first(), quint16(5));
        QCOMPARE(reflector.receivedFrames.first().payload.toHex(), QByteArray("00030000"));
        QVERIFY(a->pkiFiles().hasSignedCert());
        QFile bundle(a->pkiFiles().caBundleFile());
        QVERIFY(bundle.open(QIODevice::ReadOnly));
        QCOMPARE(bundle.readAll(), reflector.ca().certPem());
        QFile cert(a->pkiFiles().certFile());
        QVERIFY(cert.open(QIODevice::ReadOnly));
        QVERIFY(reflector.ca().issued(cert.readAll()));
        QCOMPARE(a->state(), State::Authenticating);

        // With the certificate the node logs in; the bundle isn't fetched again.
        a->stop();
        reflector.receivedDatagrams.clear();
        a->start();
        QTRY_COMPARE_WITH_TIMEOUT(a->state(), State::Connected, kSlow);
        QCOMPARE(frameTypes(reflector).count(20), 1);
        QCOMPARE(reflector.receivedDatagrams.first().size(), 16); // initial heartbeat
        SvxReflector::Node* node = reflector.node("SM0A");
        QVERIFY(node);
        QCOMPARE(node->nodeInfo, QStringLiteral("{}"));
        QCOMPARE(node->udpKey.size(), 16);
        QCOMPARE(node->ivRand.size(), 6);

        // A datagram with a bad tag is dropped, and so is anything from another port, two
        // hundred of them with one log line; valid audio after them still plays.
        QSignalSpy pcm(a.get(), &SvxReflectorClient::pcmReady);
        LogCapture log;
        reflector.sendUdpRaw(node, QByteArray::fromHex("00000063") + QByteArray(8, 'T') + "junk");
        QUdpSocket stranger;
        for (int i = 0; i < 200; ++i)
            stranger.writeDatagram(QByteArray::fromHex("00000063") + QByteArray(20, char(i)), QHostAddress::LocalHost,
                                   a->localUdpPort());
        QTRY_VERIFY(!log.linesStartingWith("SvxReflectorClient: dropped").isEmpty());
        QTest::qWait(100);
        reflector.sendAudio(node, kOpusSilence);
        const QByteArray firstAudio = node->sentDatagrams.last();
        QTRY_COMPARE(pcm.size(), 1);
        const QStringList dropped = log.linesStartingWith("SvxReflectorClient: dropped");
        QCOMPARE(dropped.size(), 1);
        QVERIFY2(dropped.first().contains("decrypt failed"), qPrintable(dropped.first()));
        QCOMPARE(pcm.first().first().toByteArray().size(), 320);
        QCOMPARE(a->state(), State::Connected);

        // An authentic datagram replayed plays nothing (the window's edges: the wire suite).
        reflector.sendUdpRaw(node, firstAudio);
        reflector.sendAudio(node, kOpusSilence);
        QTRY_COMPARE(pcm.size(), 2);
        QTest::qWait(50);
        QCOMPARE(pcm.size(), 2);
    }

    void olderReflectorAsksForVersion2_data()
    {
        QTest::addColumn<QString>("password");
        QTest::addColumn<QList<QByteArray>>("versionsSent");
        QTest::addColumn<State>("outcome");
        QTest::addColumn<QString>("status");
        QTest::newRow("auth key set") << "secret" << QList<QByteArray>{"00030000", "00020000"} << State::Connected
                                      << "connected";
        QTest::newRow("no auth key") << "" << QList<QByteArray>{"00030000"} << State::Failed
                                     << "reflector speaks only protocol v2 — set an auth key";
    }

    void olderReflectorAsksForVersion2()
    {
        QFETCH(QString, password);
        QFETCH(QList<QByteArray>, versionsSent);
        QFETCH(State, outcome);
        QFETCH(QString, status);
        QTemporaryDir pkiDir;
        SvxReflector reflector;
        reflector.setHighestVersion(2);
        reflector.setPassword("SM0A", "secret");
        auto a = makeClient(reflector, "SM0A", password);
        a->setProtocolV3(true);
        a->setAutoPki(true, pkiDir.path());
        a->start();
        QTRY_COMPARE_WITH_TIMEOUT(a->state(), outcome, kSlow);
        QCOMPARE(a->statusText(), status);
        QList<QByteArray> versions;
        for (const SvxReflector::Frame& f : std::as_const(reflector.receivedFrames)) {
            if (f.type == 5)
                versions.append(f.payload.toHex());
        }
        QCOMPARE(versions, versionsSent);
        QTest::qWait(300); // longer than the reconnect delay: a refused node does not come back
        QCOMPARE(reflector.nodes().size(), password.isEmpty() ? 0 : 1);
    }

    // Version 3 set-ups that must not log in: a reflector certificate we can't trust, or no
    // certificate of our own and no password to enrol with.
    void v3RefusedBeforeLogin_data()
    {
        QTest::addColumn<int>("kind");
        QTest::addColumn<QString>("password");
        QTest::addColumn<QString>("reason");
        QTest::newRow("other CA") << 0 << "secret"
                                  << "issuer";
        QTest::newRow("expired") << 1 << "secret"
                                 << "expired";
        QTest::newRow("wrong name") << 2 << "secret"
                                    << "host name";
        QTest::newRow("no certificate, no password")
            << 3 << ""
            << "certificate not signed yet — set the auth key (password) so the reflector can enroll this node, "
               "or have the admin sign the CSR";
    }

    void v3RefusedBeforeLogin()
    {
        QFETCH(int, kind);
        QFETCH(QString, password);
        QFETCH(QString, reason);
        QTemporaryDir pkiDir;
        SvxReflector reflector;
        reflector.setPassword("SM0A", "secret");
        SvxTestCa other(QStringLiteral("Someone Else"));
        if (kind == 0)
            reflector.setServerCertificate(other.issueServer("IP:127.0.0.1"));
        else if (kind == 1)
            reflector.setServerCertificate(reflector.ca().issueServer("IP:127.0.0.1", -30, -1));
        else if (kind == 2)
            reflector.setServerCertificate(reflector.ca().issueServer("DNS:wrong.example"));
        auto a = makeClient(reflector, "SM0A", password);
        a->setProtocolV3(true);
        a->setAutoPki(true, pkiDir.path());
        QSignalSpy errors(a.get(), &SvxReflectorClient::errorReported);
        a->start();
        QTRY_VERIFY_WITH_TIMEOUT(!errors.isEmpty(), kSlow);
        QVERIFY2(errors.first().first().toString().contains(reason, Qt::CaseInsensitive),
                 qPrintable(errors.first().first().toString()));
        if (kind == 3) {
            QVERIFY(frameTypes(reflector).contains(17)); // the request went out, no password answer
            QVERIFY(!frameTypes(reflector).contains(11));
            return;
        }
        // Nothing follows the request for encryption in clear text, and the node never logs in.
        QTRY_VERIFY(frameTypes(reflector).count(14) >= 2); // retried
        const QList<quint16> types = frameTypes(reflector);
        for (quint16 t : types)
            QVERIFY2(t == 5 || t == 14 || t == 20, qPrintable(QString::number(t)));
        QVERIFY(a->state() != State::Connected);
        QVERIFY(!a->pkiFiles().hasSignedCert());
        a->stop();
    }

    void configuredFromSettings()
    {
        TempConfigHome home;
        zl::Identity identity;
        identity.label = "Home";
        identity.callsign = "sm0cfg";
        zl::setIdentities("svxlink", {identity});
        QTemporaryDir dir;
        QFile info(dir.filePath("node.json"));
        QVERIFY(info.open(QIODevice::WriteOnly));
        info.write(R"({"qth":"Täby"})");
        info.close();

        SvxReflector reflector;
        reflector.setPassword("SM0CFG", "pw");
        const QString key = QStringLiteral("127.0.0.1:%1").arg(reflector.port());
        const QJsonObject section{{"node_info", "{}"}, {"node_info_file", info.fileName()}, {"monitor_tgs", "240, 91"}};
        const QJsonObject entry{{"auth_key", "pw"}, {"tg", "9"}, {"protocol", "V3"}};
        SvxReflectorClient client;
        zl::svx::applyReflectorSettings(client, key, entry, section, dir.path());
        client.setTiming({20, 100});
        client.start();
        QTRY_COMPARE_WITH_TIMEOUT(client.state(), State::Connected, kSlow);
        SvxReflector::Node* node = reflector.node("SM0CFG");
        QVERIFY(node);
        QCOMPARE(node->version, 2); // only "v3" exactly selects version 3
        QCOMPARE(node->nodeInfo, QStringLiteral(R"({"qth":"Täby"})"));
        QTRY_COMPARE(node->monitored, QList<quint32>({91, 240}));
        client.setTalking(true);
        QTRY_COMPARE(node->tg, 9u);
        client.setTalking(false);
    }

private:
    void audioRelayedBetweenNodes(bool v3)
    {
        QTemporaryDir pkiDir;
        SvxReflector reflector;
        reflector.setPassword("SM0A", "secret");
        reflector.setPassword("SM0B", "secret");
        auto make = [&](const QString& cs) {
            auto c = makeClient(reflector, cs);
            c->setProtocolV3(v3);
            c->setAutoPki(v3, pkiDir.filePath(cs));
            c->setMonitorTalkGroups({9});
            return c;
        };
        auto a = make("SM0A");
        auto b = make("SM0B");
        for (auto* c : {a.get(), b.get()}) {
            if (v3) { // enrol first
                QSignalSpy notice(c, &SvxReflectorClient::errorReported);
                c->start();
                QTRY_COMPARE_WITH_TIMEOUT(notice.size(), 1, kSlow);
                c->stop();
            }
            c->start();
            QTRY_COMPARE_WITH_TIMEOUT(c->state(), State::Connected, kSlow);
        }
        QSignalSpy bPcm(b.get(), &SvxReflectorClient::pcmReady);
        QSignalSpy bTalkers(b.get(), &SvxReflectorClient::talkerStart);
        QSignalSpy bStops(b.get(), &SvxReflectorClient::talkerStop);

        // Not talking: nothing is buffered or sent.
        a->pushMicPcm(toneFrame(0));
        a->selectTalkGroup(9);
        a->setTalking(true);
        SvxReflector::Node* na = reflector.node("SM0A");
        QTRY_COMPARE(na->tg, 9u);
        // 100 samples give no packet, 60 more fill the first 20 ms frame exactly.
        const QByteArray first = toneFrame(0);
        a->pushMicPcm(first.left(200));
        a->pushMicPcm(first.mid(200));
        QTRY_COMPARE(reflector.receivedAudio.size(), 1);
        QCOMPARE(reflector.talkerLog, QStringList({"start 9 SM0A"}));
        QTRY_COMPARE(bTalkers.size(), 1);
        // b follows the monitored group; its audio arrives from then on.
        QTRY_COMPARE(reflector.node("SM0B")->tg, 9u);
        for (int i = 1; i < 50; ++i)
            a->pushMicPcm(toneFrame(i));
        QTRY_COMPARE(reflector.receivedAudio.size(), 50);
        QTRY_VERIFY(bPcm.size() >= 40);
        QList<QByteArray> frames;
        for (const QList<QVariant>& f : std::as_const(bPcm))
            frames.append(f.first().toByteArray());
        for (const QByteArray& f : std::as_const(frames))
            QCOMPARE(f.size(), 320);
        frames = frames.mid(5);
        QVERIFY2(pcm::toneShare(frames, 500) > 0.8, qPrintable(QString::number(pcm::toneShare(frames, 500))));
        QVERIFY(pcm::toneShare(frames, 1300) < 0.05);

        a->setTalking(false);
        QTRY_COMPARE(bStops.size(), 1);
        QCOMPARE(bStops.first().at(1).toString(), QStringLiteral("SM0A"));

        // And the other way: the reflector's audio reaches a's speaker side.
        QSignalSpy aPcm(a.get(), &SvxReflectorClient::pcmReady);
        for (int i = 0; i < 3; ++i)
            reflector.sendAudio(na, kOpusSilence);
        QTRY_COMPARE(aPcm.size(), 3);
    }
};

QTEST_GUILESS_MAIN(TestSvxClient)
#include "tst_svxclient.moc"
