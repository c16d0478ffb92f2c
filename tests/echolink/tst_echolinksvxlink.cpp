// A QSO with a real EchoLink node: Debian's svxlink-server on 127.0.0.2, registered at a
// loopback directory on 127.0.0.4:5200. The node's ports are fixed at 5198/5199, so ours are
// the same ports on 127.0.0.1.
#include "EchoLinkDirectoryServer.h"
#include "Pcm.h"
#include "SvxLinkNode.h"
#include "echolink/EchoLinkDispatcher.h"
#include "echolink/EchoLinkQso.h"

#include <QSignalSpy>
#include <QTest>
#include <QTimer>

#include <algorithm>
#include <memory>

using zl::echolink::EchoLinkDispatcher;
using zl::echolink::EchoLinkQso;
using State = EchoLinkQso::State;

namespace {

// Calls fn every 20 ms, count times, with the frame index; returns when done.
void paced(int count, const std::function<void(int)>& fn)
{
    int n = 0;
    QTimer timer;
    timer.setInterval(20);
    QObject::connect(&timer, &QTimer::timeout, [&] {
        if (n < count)
            fn(n++);
    });
    timer.start();
    QTRY_VERIFY_WITH_TIMEOUT(n >= count, count * 20 + 5000);
}

} // namespace

class TestEchoLinkSvxLink : public QObject {
    Q_OBJECT

private:
    // The node registered at the loopback directory and a QSO of ours connected to it.
    std::unique_ptr<EchoLinkDirectoryServer> directory;
    std::unique_ptr<EchoLinkDispatcher> dispatcher;
    std::unique_ptr<SvxLinkNode> node;
    std::unique_ptr<EchoLinkQso> qso;

private slots:
    void init()
    {
        qRegisterMetaType<State>();
        const QString reason = SvxLinkNode::unavailableReason();
        if (!reason.isEmpty())
            QSKIP(qPrintable(reason));
        directory = std::make_unique<EchoLinkDirectoryServer>(SvxLinkNode::kDirectoryAddress, 5200);
        if (!directory->isListening())
            QSKIP("127.0.0.4:5200 is taken: no loopback directory for the node");
        directory->setStationList(
            EchoLinkDirectoryServer::listReply({{"ZZ9ZZ-L", "Loopback [ON] 12:00", "1", "127.0.0.2"}}));
        dispatcher = std::make_unique<EchoLinkDispatcher>();
        dispatcher->setPortsForTest(5198, 5199, QHostAddress::LocalHost);
        if (!dispatcher->bind())
            QSKIP("127.0.0.1:5198/5199 are taken");
        node = std::make_unique<SvxLinkNode>();
        QVERIFY2(node->start(), "svxlink did not start");
        // It registers at start-up: callsign, the two 0xAC bytes, its password.
        QTRY_VERIFY_WITH_TIMEOUT(!directory->requests.isEmpty(), 10000);
        QVERIFY(directory->requests.first().startsWith("lZZ9ZZ-L\xAC\xAC"));

        qso = std::make_unique<EchoLinkQso>();
        qso->setCallsign("ab1cd");
        qso->setName("Al");
        qso->setDescription("zephyrlake test");
        qso->setPorts(dispatcher->audioPort(), dispatcher->ctrlPort());
        qso->setSendFunction(
            [this](const QHostAddress& a, quint16 p, const QByteArray& b) { dispatcher->send(a, p, b); });
        dispatcher->addPeer(SvxLinkNode::kAddress.toString(), qso.get());
    }

    void cleanup()
    {
        qso.reset();
        node.reset();
        dispatcher.reset();
        directory.reset();
    }

    void qsoWithSvxLinkNode()
    {
        QSignalSpy pcm(qso.get(), &EchoLinkQso::pcmReady);
        QSignalSpy info(qso.get(), &EchoLinkQso::infoReceived);
        QVERIFY(qso->connectTo(SvxLinkNode::kAddress.toString()));
        QTRY_COMPARE_WITH_TIMEOUT(qso->state(), State::Connected, 10000);
        // Its info text is either its description or the list of the node and its stations, one
        // a line; in the list we appear under the callsign and name our SDES gave.
        QTRY_VERIFY_WITH_TIMEOUT(!info.isEmpty(), 5000);
        for (const QList<QVariant>& args : info) {
            const QString text = args.first().toString();
            if (text.startsWith("Loopback node")) {
                QCOMPARE(text.left(23), QStringLiteral("Loopback node\nfor tests"));
                continue;
            }
            const QStringList lines = text.split('\n');
            QVERIFY2(lines.contains("ZZ9ZZ-L         Zed"), qPrintable(text));
            QVERIFY2(std::any_of(lines.begin(), lines.end(),
                                 [](const QString& l) { return l.startsWith("AB1CD ") && l.endsWith(" Al"); }),
                     qPrintable(text));
        }

        // Its receiver hears a tone: the VOX opens and the node sends GSM audio our way.
        pcm.clear();
        paced(75, [&](int i) { node->sendToReceiver(pcm::tone(320, 600, 8000, 16000, i * 320)); });
        QTRY_VERIFY_WITH_TIMEOUT(pcm.count() >= 5, 5000);
        QByteArray heard;
        for (const QList<QVariant>& args : pcm)
            heard += args.first().toByteArray();
        QVERIFY2(pcm::rms(heard) > 1000, qPrintable(QString::number(pcm::rms(heard))));

        // Silence closes its VOX: a simplex node doesn't transmit while it receives.
        paced(50, [&](int) { node->sendToReceiver(QByteArray(640, '\0')); });
        QTRY_VERIFY_WITH_TIMEOUT(node->output().contains("The squelch is CLOSED"), 5000);

        // Our microphone reaches its transmitter.
        node->takeTransmitted();
        paced(75, [&](int i) { qso->pushPcm(pcm::tone(160, 500, 8000, 8000, i * 160)); });
        QTRY_VERIFY_WITH_TIMEOUT(node->transmittedBytes() >= 16000, 5000);
        QVERIFY2(pcm::rms(node->takeTransmitted()) > 1000, qPrintable(node->output()));

        // Chat reaches it.
        qso->sendChat("hello from the test");
        QTRY_VERIFY_WITH_TIMEOUT(node->output().contains("hello from the test"), 5000);

        // Our BYE ends the QSO on its side.
        qso->disconnect();
        QCOMPARE(qso->state(), State::Disconnected);
        QTRY_VERIFY_WITH_TIMEOUT(node->output().contains("DISCONNECTED"), 5000);

        node->terminate();
    }

    void nodeShutdownSendsBye()
    {
        QVERIFY(qso->connectTo(SvxLinkNode::kAddress.toString()));
        QTRY_COMPARE_WITH_TIMEOUT(qso->state(), State::Connected, 10000);
        // SIGTERM: the node says BYE to its stations on the way out.
        node->terminate();
        QTRY_COMPARE_WITH_TIMEOUT(qso->state(), State::Disconnected, 10000);
    }
};

QTEST_GUILESS_MAIN(TestEchoLinkSvxLink)
#include "tst_echolinksvxlink.moc"
