// EchoLinkDispatcher and EchoLinkQso against loopback EchoLink nodes on 127.0.0.2 and
// 127.0.0.3, with the port pair moved off 5198/5199.
#include "EchoLinkPeer.h"
#include "Pcm.h"
#include "echolink/EchoLinkDispatcher.h"
#include "echolink/EchoLinkQso.h"

#include <QSignalSpy>
#include <QTest>

#include <memory>

using zl::echolink::EchoLinkDispatcher;
using zl::echolink::EchoLinkQso;
using State = EchoLinkQso::State;

namespace {

const QHostAddress kLocal("127.0.0.1");
const QHostAddress kNode("127.0.0.2");
const QHostAddress kOther("127.0.0.3");

struct Rig {
    quint16 port = EchoLinkPeer::freePortPair(kOther);
    EchoLinkDispatcher dispatcher;
    EchoLinkPeer node{kNode, port, quint16(port + 1)};

    Rig() { dispatcher.setPortsForTest(port, quint16(port + 1), kLocal); }

    std::unique_ptr<EchoLinkQso> makeQso(EchoLinkQso::Timing timing = {})
    {
        auto qso = std::make_unique<EchoLinkQso>();
        qso->setCallsign("ab1cd");
        qso->setName("Al");
        qso->setDescription("Test station\nJO65");
        qso->setPorts(dispatcher.audioPort(), dispatcher.ctrlPort());
        qso->setTiming(timing);
        qso->setSendFunction(
            [this](const QHostAddress& a, quint16 p, const QByteArray& b) { dispatcher.send(a, p, b); });
        return qso;
    }
};

} // namespace

class TestEchoLinkQso : public QObject {
    Q_OBJECT

private slots:
    void init() { qRegisterMetaType<State>(); }

    void outgoingQsoBothWays()
    {
        Rig rig;
        QVERIFY(rig.port != 0);
        QVERIFY(rig.node.isBound());
        QVERIFY(rig.dispatcher.bind());
        auto qso = rig.makeQso();
        QSignalSpy states(qso.get(), &EchoLinkQso::stateChanged);
        QSignalSpy pcm(qso.get(), &EchoLinkQso::pcmReady);
        QSignalSpy chat(qso.get(), &EchoLinkQso::chatReceived);
        QSignalSpy info(qso.get(), &EchoLinkQso::infoReceived);
        rig.dispatcher.addPeer(kNode.toString(), qso.get());

        QVERIFY(qso->connectTo(kNode.toString()));
        QCOMPARE(qso->state(), State::Connecting);
        // The node answers the SDES with its own: connected, and our info packet follows.
        QTRY_COMPARE(qso->state(), State::Connected);
        QCOMPARE(states.count(), 2);
        QTRY_VERIFY(!rig.node.audioReceived.isEmpty());
        QCOMPARE(rig.node.audioReceived.first(), QByteArray("oNDATA\rTest station\rJO65\0", 25));
        const QByteArray sdes = rig.node.ctrlReceived.first();
        QCOMPARE(quint8(sdes.at(9)), quint8(202));
        QVERIFY(sdes.contains("AB1CD          Al"));

        // Its audio reaches our PCM signal, 640 samples per packet (the sound itself: the svxlink suite).
        for (int i = 0; i < 5; ++i)
            rig.node.sendAudio(kLocal, rig.node.gsmPacket(pcm::tone(640, 500, 6000)));
        QTRY_COMPARE(pcm.count(), 5);
        for (const QList<QVariant>& args : pcm)
            QCOMPARE(args.first().toByteArray().size(), 1280);

        // Our microphone reaches it: twenty 20 ms frames give five GSM packets with sequence numbers from 0.
        rig.node.audioReceived.clear();
        for (int i = 0; i < 20; ++i)
            qso->pushPcm(pcm::tone(160, 700, 6000, 8000, i * 160));
        QTRY_COMPARE(rig.node.audioReceived.size(), 5);
        for (int i = 0; i < 5; ++i) {
            const QByteArray p = rig.node.audioReceived.at(i);
            QCOMPARE(p.size(), 144);
            QCOMPARE(p.left(4), QByteArray::fromHex("c003") + char(0) + char(i));
            QCOMPARE(quint8(p.at(12)) >> 4, 0xD); // every GSM frame starts with its magic nibble
        }

        // Chat and info text both ways.
        rig.node.sendAudio(kLocal, QByteArray("oNDATAZZ9ZZ>hello there\r\n\0", 26));
        rig.node.sendAudio(kLocal, QByteArray("oNDATA\rZed's node\rLocator AA00\0", 31));
        QTRY_COMPARE(chat.count(), 1);
        QCOMPARE(chat.first().first().toString(), QStringLiteral("ZZ9ZZ>hello there"));
        QTRY_COMPARE(info.count(), 1);
        QCOMPARE(info.first().first().toString(), QStringLiteral("Zed's node\nLocator AA00"));
        rig.node.audioReceived.clear();
        qso->sendChat("73");
        QTRY_COMPARE(rig.node.audioReceived.size(), 1);
        QCOMPARE(rig.node.audioReceived.first(), QByteArray("oNDATAAB1CD>73\r\n\0", 17));

        // BYE from the node ends it, without a BYE in answer.
        const qsizetype ctrlBefore = rig.node.ctrlReceived.size();
        rig.node.sendBye(kLocal);
        QTRY_COMPARE(qso->state(), State::Disconnected);
        QTest::qWait(50);
        QCOMPARE(rig.node.ctrlReceived.size(), ctrlBefore);
    }

    void audioSizesAndStrangers()
    {
        Rig rig;
        QVERIFY(rig.dispatcher.bind());
        auto qso = rig.makeQso();
        QSignalSpy pcm(qso.get(), &EchoLinkQso::pcmReady);
        QSignalSpy incoming(&rig.dispatcher, &EchoLinkDispatcher::incomingConnection);
        rig.dispatcher.addPeer(kNode.toString(), qso.get());
        qso->acceptIncoming(kNode);
        QCOMPARE(qso->state(), State::Connected);

        const QByteArray good = rig.node.gsmPacket(pcm::tone(640, 300, 6000));
        rig.node.sendAudio(kLocal, good.left(143));                                    // too short
        rig.node.sendAudio(kLocal, QByteArray(1, char(0xC0)) + char(8) + good.mid(2)); // not GSM
        rig.node.sendAudio(kLocal, good + QByteArray(6, 'x'));                         // tail ignored
        QTRY_COMPARE(pcm.count(), 1);
        QCOMPARE(pcm.first().first().toByteArray().size(), 1280);

        // A stranger's audio is dropped; its SDES is an incoming call, with the name's callsign.
        EchoLinkPeer stranger(kOther, rig.port, quint16(rig.port + 1));
        QVERIFY(stranger.isBound());
        stranger.setName("zz1zz Zed");
        stranger.sendAudio(kLocal, good);
        stranger.connectTo(kLocal);
        QTRY_COMPARE(incoming.count(), 1);
        QCOMPARE(incoming.first().at(0).value<QHostAddress>(), kOther);
        QCOMPARE(incoming.first().at(1).toString(), QStringLiteral("ZZ1ZZ"));
        QCOMPARE(pcm.count(), 1);
        // Repeated SDES: another incoming call each time, as long as nobody took it.
        stranger.connectTo(kLocal);
        QTRY_COMPARE(incoming.count(), 2);

        // Control packets of 9 bytes or less, or of other kinds, change nothing.
        rig.node.sendAudio(kLocal, QByteArray()); // empty audio datagram
        qso->onCtrlDatagram(QByteArray(9, char(203)));
        qso->onCtrlDatagram(QByteArray::fromHex("c0c9000100000000c1cc"));
        QCOMPARE(qso->state(), State::Connected);

        // Our own hang-up sends BYE.
        rig.node.ctrlReceived.clear();
        qso->disconnect();
        QCOMPARE(qso->state(), State::Disconnected);
        QTRY_COMPARE(rig.node.ctrlReceived.size(), 1);
        QCOMPARE(quint8(rig.node.ctrlReceived.first().at(9)), quint8(203));
    }

    void silentNodeTimesOut()
    {
        Rig rig;
        rig.node.setAnswerSdes(false);
        QVERIFY(rig.dispatcher.bind());
        auto qso = rig.makeQso({50, 400});
        QSignalSpy errors(qso.get(), &EchoLinkQso::errorReported);
        rig.dispatcher.addPeer(kNode.toString(), qso.get());
        QVERIFY(qso->connectTo(kNode.toString()));
        // Six keep-alive ticks without an answer: given up before the time-out.
        QTRY_COMPARE(qso->state(), State::Disconnected);
        QCOMPARE(errors.count(), 1);
        QCOMPARE(errors.first().first().toString(), QStringLiteral("EchoLink: no answer from node"));
        QCOMPARE(quint8(rig.node.ctrlReceived.last().at(9)), quint8(203));
        QCOMPARE(rig.node.ctrlReceived.size(), 7); // first SDES, five repeats, BYE

        // Connected but silent: the time-out ends it with a BYE.
        auto second = rig.makeQso({1000, 150});
        QSignalSpy secondErrors(second.get(), &EchoLinkQso::errorReported);
        rig.dispatcher.removePeer(qso.get());
        rig.dispatcher.addPeer(kNode.toString(), second.get());
        second->acceptIncoming(kNode);
        QTRY_COMPARE(second->state(), State::Disconnected);
        QCOMPARE(secondErrors.first().first().toString(), QStringLiteral("EchoLink: connection timed out"));

        QSignalSpy badErrors(second.get(), &EchoLinkQso::errorReported);
        QVERIFY(!second->connectTo("not an address"));
        QCOMPARE(badErrors.first().first().toString(), QStringLiteral("EchoLink: bad peer address not an address"));
    }

    void bindFailureReleasesBoth()
    {
        Rig rig;
        QUdpSocket blocker;
        QVERIFY(blocker.bind(kLocal, quint16(rig.port + 1)));
        QVERIFY(!rig.dispatcher.bind());
        blocker.close();
        QVERIFY(rig.dispatcher.bind()); // the audio socket of the failed try didn't linger
        QVERIFY(rig.dispatcher.bind());
    }
};

QTEST_GUILESS_MAIN(TestEchoLinkQso)
#include "tst_echolinkqso.moc"
