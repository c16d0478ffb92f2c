// Every frame IaxClient sends, captured on the loopback interface and decoded by Wireshark's
// IAX2 dissector (tshark): no frame may come out malformed or with an error-level finding.
// Needs root for the capture and tshark installed; skipped otherwise.
#include "IaxServer.h"
#include "iax/IaxClient.h"

#include <QProcess>
#include <QScopeGuard>
#include <QStandardPaths>
#include <QTest>
#include <QUdpSocket>
#include <QtEndian>

#include <unistd.h>

using zl::iax::IaxClient;

class TestIaxWire : public QObject {
    Q_OBJECT

private slots:
    void framesDecodeAsIax2()
    {
        const QString tshark = QStandardPaths::findExecutable("tshark");
        if (tshark.isEmpty())
            QSKIP("tshark is not installed");
        if (geteuid() != 0)
            QSKIP("capturing on lo needs root");
        IaxServer server;
        server.setRequireCallToken(true);
        server.setPassword("pw");
        // The capture is known to be running once a probe datagram to a second port shows up.
        QUdpSocket probe;
        QVERIFY(probe.bind(QHostAddress::LocalHost, 0));
        const quint16 probePort = probe.localPort();
        QProcess capture;
        const QString filter = QStringLiteral("udp port %1 or udp port %2").arg(server.port()).arg(probePort);
        const QString decodeAs = QStringLiteral("udp.port==%1,iax2").arg(server.port());
        capture.start(tshark, QStringList{"-i", "lo", "-l", "-f", filter, "-a", "duration:60", "-d", decodeAs} +
                                  QString("-T fields -E separator=| -e udp.dstport -e frame.protocols -e "
                                          "iax2.packet_type -e _ws.malformed -e _ws.expert.severity")
                                      .split(' '));
        QVERIFY(capture.waitForStarted(5000));
        // Killed by its id at any early return, so that no capture outlives the test.
        const auto stopCapture = qScopeGuard([&] {
            if (capture.state() != QProcess::NotRunning) {
                capture.kill();
                capture.waitForFinished(5000);
            }
        });
        QByteArray lines;
        const auto readLines = [&] { lines += capture.readAllStandardOutput(); };
        QTRY_VERIFY_WITH_TIMEOUT((probe.writeDatagram("probe", QHostAddress::LocalHost, probePort), readLines(),
                                  lines.contains(QByteArray::number(probePort) + "|")) ||
                                     capture.state() != QProcess::Running,
                                 15000);
        if (capture.state() != QProcess::Running)
            QSKIP(qPrintable("tshark cannot capture here: " + QString::fromLocal8Bit(capture.readAllStandardError())));

        // A call with token, authentication, voice both ways, DTMF, pings and hang-up.
        IaxClient client;
        client.setAccount("127.0.0.1", server.port(), "iaxrpt", "pw", "41234", "ab1cd");
        client.setPingIntervalForTest(100);
        client.call();
        QTRY_COMPARE(client.state(), IaxClient::State::Up);
        QByteArray pcm(320, '\0');
        for (int i = 0; i < 160; ++i)
            qToLittleEndian<qint16>(qint16((i % 20) * 1000 - 10000), pcm.data() + 2 * i);
        for (int i = 0; i < 5; ++i)
            client.pushPcm(pcm);
        server.sendFull(2, 4, QByteArray(160, char(0x55)));
        server.sendFull(6, 11);
        client.sendDtmf("*70#");
        QTest::qWait(350);
        client.hangup();
        QTRY_VERIFY(server.received.last().type == 6 && server.received.last().subclass == 5);
        const qsizetype sent = server.received.size();

        // Every datagram to the server's port came from the client: each must be dissected.
        const auto clientLines = [&] {
            QList<QByteArray> out;
            for (const QByteArray& line : lines.split('\n'))
                if (line.startsWith(QByteArray::number(server.port()) + "|"))
                    out.append(line);
            return out;
        };
        QTRY_COMPARE_WITH_TIMEOUT((readLines(), clientLines().size()), sent, 10000);
        for (const QByteArray& line : clientLines()) {
            const QList<QByteArray> f = line.split('|');
            QCOMPARE(f.size(), 5);
            QVERIFY2(f.at(1).contains(":udp:iax2"), line.constData());
            QVERIFY2(!f.at(2).isEmpty(), line.constData()); // full or mini frame recognised
            QVERIFY2(f.at(3).isEmpty(), line.constData());  // not malformed
            // Error-level expert findings have severity 0x00800000.
            QVERIFY2(!f.at(4).contains("8388608"), line.constData());
        }
    }
};

QTEST_GUILESS_MAIN(TestIaxWire)
#include "tst_iaxwire.moc"
