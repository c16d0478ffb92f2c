// A QSO with a real EchoLink node: Debian's svxlink-server on 127.0.0.2, registered at a
// loopback directory on 127.0.0.4:5200. The node's ports are fixed at 5198/5199, so ours are
// the same ports on 127.0.0.1.
#include "EchoLinkDirectoryServer.h"
#include "SvxLinkNode.h"
#include "echolink/EchoLinkDispatcher.h"
#include "echolink/EchoLinkQso.h"

#include <QSignalSpy>
#include <QTest>
#include <QTimer>
#include <QtEndian>

#include <algorithm>
#include <cmath>

using zl::echolink::EchoLinkDispatcher;
using zl::echolink::EchoLinkQso;
using State = EchoLinkQso::State;

namespace {

QByteArray tone(int samples, int rate, double hz, int start)
{
    QByteArray pcm(samples * 2, '\0');
    for (int i = 0; i < samples; ++i)
        qToLittleEndian<qint16>(qint16(8000 * std::sin(2 * M_PI * hz * (start + i) / rate)), pcm.data() + 2 * i);
    return pcm;
}

double rms(const QByteArray& pcm)
{
    double sum = 0;
    const qsizetype n = pcm.size() / 2;
    for (qsizetype i = 0; i < n; ++i) {
        const double s = qFromLittleEndian<qint16>(pcm.constData() + 2 * i);
        sum += s * s;
    }
    return n ? std::sqrt(sum / double(n)) : 0;
}

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

private slots:
    void init() { qRegisterMetaType<State>(); }

    void qsoWithSvxLinkNode()
    {
        const QString reason = SvxLinkNode::unavailableReason();
        if (!reason.isEmpty())
            QSKIP(qPrintable(reason));
        EchoLinkDirectoryServer directory(SvxLinkNode::kDirectoryAddress, 5200);
        if (!directory.isListening())
            QSKIP("127.0.0.4:5200 is taken: no loopback directory for the node");
        directory.setStationList(
            EchoLinkDirectoryServer::listReply({{"ZZ9ZZ-L", "Loopback [ON] 12:00", "1", "127.0.0.2"}}));
        EchoLinkDispatcher dispatcher;
        dispatcher.setPortsForTest(5198, 5199, QHostAddress::LocalHost);
        if (!dispatcher.bind())
            QSKIP("127.0.0.1:5198/5199 are taken");

        SvxLinkNode node;
        QVERIFY2(node.start(), "svxlink did not start");
        // It registers at start-up: callsign, the two 0xAC bytes, its password.
        QTRY_VERIFY_WITH_TIMEOUT(!directory.requests.isEmpty(), 10000);
        QVERIFY(directory.requests.first().startsWith("lZZ9ZZ-L\xAC\xAC"));

        EchoLinkQso qso;
        qso.setCallsign("ab1cd");
        qso.setName("Al");
        qso.setDescription("zephyrlake test");
        qso.setPorts(dispatcher.audioPort(), dispatcher.ctrlPort());
        qso.setSendFunction([&](const QHostAddress& a, quint16 p, const QByteArray& b) { dispatcher.send(a, p, b); });
        dispatcher.addPeer(SvxLinkNode::kAddress.toString(), &qso);
        QSignalSpy pcm(&qso, &EchoLinkQso::pcmReady);
        QSignalSpy info(&qso, &EchoLinkQso::infoReceived);

        QVERIFY(qso.connectTo(SvxLinkNode::kAddress.toString()));
        QTRY_COMPARE_WITH_TIMEOUT(qso.state(), State::Connected, 10000);
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
        paced(75, [&](int i) { node.sendToReceiver(tone(320, 16000, 600, i * 320)); });
        QTRY_VERIFY_WITH_TIMEOUT(pcm.count() >= 5, 5000);
        QByteArray heard;
        for (const QList<QVariant>& args : pcm)
            heard += args.first().toByteArray();
        QVERIFY2(rms(heard) > 1000, qPrintable(QString::number(rms(heard))));

        // Silence closes its VOX: a simplex node doesn't transmit while it receives.
        paced(50, [&](int) { node.sendToReceiver(QByteArray(640, '\0')); });
        QTRY_VERIFY_WITH_TIMEOUT(node.output().contains("The squelch is CLOSED"), 5000);

        // Our microphone reaches its transmitter.
        node.takeTransmitted();
        paced(75, [&](int i) { qso.pushPcm(tone(160, 8000, 500, i * 160)); });
        QTRY_VERIFY_WITH_TIMEOUT(node.transmittedBytes() >= 16000, 5000);
        QVERIFY2(rms(node.takeTransmitted()) > 1000, qPrintable(node.output()));

        // Chat reaches it.
        qso.sendChat("hello from the test");
        QTRY_VERIFY_WITH_TIMEOUT(node.output().contains("hello from the test"), 5000);

        // Our BYE ends the QSO on its side.
        qso.disconnect();
        QCOMPARE(qso.state(), State::Disconnected);
        QTRY_VERIFY_WITH_TIMEOUT(node.output().contains("DISCONNECTED"), 5000);

        node.terminate();
    }

    void nodeShutdownSendsBye()
    {
        const QString reason = SvxLinkNode::unavailableReason();
        if (!reason.isEmpty())
            QSKIP(qPrintable(reason));
        EchoLinkDirectoryServer directory(SvxLinkNode::kDirectoryAddress, 5200);
        if (!directory.isListening())
            QSKIP("127.0.0.4:5200 is taken: no loopback directory for the node");
        EchoLinkDispatcher dispatcher;
        dispatcher.setPortsForTest(5198, 5199, QHostAddress::LocalHost);
        if (!dispatcher.bind())
            QSKIP("127.0.0.1:5198/5199 are taken");
        SvxLinkNode node;
        QVERIFY2(node.start(), "svxlink did not start");
        QTRY_VERIFY_WITH_TIMEOUT(!directory.requests.isEmpty(), 10000);

        EchoLinkQso qso;
        qso.setCallsign("ab1cd");
        qso.setPorts(dispatcher.audioPort(), dispatcher.ctrlPort());
        qso.setSendFunction([&](const QHostAddress& a, quint16 p, const QByteArray& b) { dispatcher.send(a, p, b); });
        dispatcher.addPeer(SvxLinkNode::kAddress.toString(), &qso);
        QVERIFY(qso.connectTo(SvxLinkNode::kAddress.toString()));
        QTRY_COMPARE_WITH_TIMEOUT(qso.state(), State::Connected, 10000);
        // SIGTERM: the node says BYE to its stations on the way out.
        node.terminate();
        QTRY_COMPARE_WITH_TIMEOUT(qso.state(), State::Disconnected, 10000);
    }
};

QTEST_GUILESS_MAIN(TestEchoLinkSvxLink)
#include "tst_echolinksvxlink.moc"
