// IaxClient calling a real IAX2 endpoint, Debian's iaxmodem: set-up, mu-law voice both ways,
// hang-up.
#include "IaxModem.h"
#include "Pcm.h"
#include "iax/IaxClient.h"

#include <QSignalSpy>
#include <QTest>
#include <QTimer>
#include <QUdpSocket>

#include <algorithm>

using zl::iax::IaxClient;
using State = IaxClient::State;

namespace {

quint16 freeUdpPort()
{
    QUdpSocket probe;
    probe.bind(QHostAddress::AnyIPv4, 0);
    return probe.localPort();
}

} // namespace

class TestIaxModem : public QObject {
    Q_OBJECT

private slots:
    void init() { qRegisterMetaType<State>(); }

    void callVoiceAndHangup()
    {
        const QString reason = IaxModem::unavailableReason();
        if (!reason.isEmpty())
            QSKIP(qPrintable(reason));
        const quint16 port = freeUdpPort();
        IaxModem modem;
        QVERIFY2(modem.start(port), "iaxmodem did not start");
        // A fax modem (service class 1) answers with its calling tone, audio we can measure.
        modem.sendAt("AT+FCLASS=1");
        QTRY_VERIFY_WITH_TIMEOUT(modem.modemOutput().contains("OK"), 5000);

        IaxClient client;
        client.setAccount("127.0.0.1", port, "zl", "", "1234", "ab1cd");
        QSignalSpy pcm(&client, &IaxClient::pcmReady);
        client.call();
        // The modem rings; answering it answers the call.
        QTRY_VERIFY_WITH_TIMEOUT(modem.modemOutput().contains("RING"), 5000);
        modem.sendAt("ATA");
        QTRY_COMPARE_WITH_TIMEOUT(client.state(), State::Up, 5000);

        // Its answer tone reaches us as mu-law voice.
        const auto loudest = [&] {
            double most = 0;
            for (const QList<QVariant>& args : pcm)
                most = std::max(most, pcm::rms(args.first().toByteArray()));
            return most;
        };
        QTRY_VERIFY_WITH_TIMEOUT(loudest() > 1000, 8000);

        // Our voice reaches it: a 1 kHz tone, paced at 20 ms, shows in its recording.
        int sent = 0;
        QTimer pace;
        pace.setInterval(20);
        connect(&pace, &QTimer::timeout, [&] {
            client.pushPcm(pcm::tone(160, 1000, 10000, 8000, sent * 160));
            ++sent;
        });
        const qsizetype before = modem.receivedAudio().size();
        pace.start();
        QTRY_VERIFY_WITH_TIMEOUT(sent >= 50, 5000);
        pace.stop();
        QTRY_VERIFY_WITH_TIMEOUT(modem.receivedAudio().size() >= before + 40 * 320, 5000);
        QVERIFY(pcm::rms(modem.receivedAudio().mid(before)) > 3000);

        // Our hang-up drops its carrier.
        client.hangup();
        QCOMPARE(client.state(), State::Disconnected);
        QTRY_VERIFY_WITH_TIMEOUT(modem.modemOutput().contains("NO CARRIER"), 5000);
        modem.terminate();
    }
};

QTEST_GUILESS_MAIN(TestIaxModem)
#include "tst_iaxmodem.moc"
