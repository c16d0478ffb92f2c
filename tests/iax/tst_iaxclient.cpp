// IaxClient against a loopback IAX2 server that behaves as Asterisk does for app_rpt calls.
#include "IaxServer.h"
#include "iax/IaxClient.h"

#include <QSignalSpy>
#include <QTest>
#include <QUdpSocket>
#include <QtEndian>

using zl::iax::IaxClient;
using State = IaxClient::State;
using Frame = IaxServer::Frame;

namespace {

constexpr quint8 kIax = 6;

QList<Frame> framesOf(const QList<Frame>& all, quint8 type, quint8 subclass)
{
    QList<Frame> out;
    for (const Frame& f : all)
        if (f.full && f.type == type && f.subclass == subclass)
            out.append(f);
    return out;
}

void account(IaxClient& client, const IaxServer& server, const QString& password = {})
{
    client.setAccount("127.0.0.1", server.port(), "iaxrpt", password, "41234", "ab1cd");
}

QByteArray pcmFrame(qint16 value)
{
    QByteArray pcm(320, '\0');
    for (int i = 0; i < 160; ++i)
        qToLittleEndian<qint16>(value, pcm.data() + 2 * i);
    return pcm;
}

} // namespace

class TestIaxClient : public QObject {
    Q_OBJECT

private slots:
    void init() { qRegisterMetaType<State>(); }

    void callTokenAuthVoiceAndHangup()
    {
        IaxServer server;
        server.setRequireCallToken(true);
        server.setPassword("s3cret");
        IaxClient client;
        account(client, server, "s3cret");
        QSignalSpy pcm(&client, &IaxClient::pcmReady);
        client.call();
        QCOMPARE(client.state(), State::Connecting);
        QTRY_COMPARE(client.state(), State::Up);

        const QList<Frame> news = framesOf(server.received, kIax, 1);
        QCOMPARE(news.size(), 2);
        // The first NEW asks for a token; elements in their order, calling number = node.
        const Frame& first = news.first();
        QCOMPARE(first.dstCall, quint16(0));
        QCOMPARE(first.oseq, quint8(0));
        QCOMPARE(first.payload, QByteArray::fromHex("0b020002") + QByteArray::fromHex("0105") + "41234" +
                                    QByteArray::fromHex("0205") + "41234" + QByteArray::fromHex("0405") + "AB1CD" +
                                    QByteArray::fromHex("0606") + "iaxrpt" + QByteArray::fromHex("080400000004") +
                                    QByteArray::fromHex("090400000004") + QByteArray::fromHex("3600"));
        // The second carries the token, a fresh oseq and no destination call.
        const Frame& second = news.at(1);
        QCOMPARE(second.ies.value(54), server.token);
        QCOMPARE(second.dstCall, quint16(0));
        QVERIFY(second.oseq != 0);
        QCOMPARE(second.srcCall, first.srcCall);

        // MD5 over challenge and password, lower-case hex.
        const QList<Frame> reps = framesOf(server.received, kIax, 9);
        QCOMPARE(reps.size(), 1);
        QCOMPARE(reps.first().ies.value(16),
                 QCryptographicHash::hash(server.challenge + "s3cret", QCryptographicHash::Md5).toHex());
        QCOMPARE(reps.first().dstCall, server.ourCall);

        // Voice out: the first frame is full (mu-law, 160 bytes), then mini frames.
        server.received.clear();
        client.pushPcm(pcmFrame(0));
        client.pushPcm(pcmFrame(120));
        // Late acknowledgements of the set-up may arrive in between: only voice counts here.
        const auto voiceFrames = [&] {
            QList<Frame> out;
            for (const Frame& f : server.received)
                if (!f.full || f.type == 2)
                    out.append(f);
            return out;
        };
        QTRY_COMPARE(voiceFrames().size(), 2);
        const Frame voice = voiceFrames().first();
        QVERIFY(voice.full);
        QCOMPARE(voice.type, quint8(2));
        QCOMPARE(voice.subclass, quint8(4));
        QCOMPARE(voice.payload, QByteArray(160, char(0xFF)));
        const Frame mini = voiceFrames().at(1);
        QVERIFY(!mini.full);
        QCOMPARE(mini.srcCall, client.sourceCallNumber());
        QCOMPARE(mini.payload, QByteArray(160, char(0xF0)));

        // Voice in: mini and full frames are decoded; a full one is acknowledged.
        server.sendMini(QByteArray(160, char(0x80)));
        QTRY_COMPARE(pcm.count(), 1);
        QCOMPARE(pcm.first().first().toByteArray().size(), 320);
        QCOMPARE(qFromLittleEndian<qint16>(pcm.first().first().toByteArray().constData()), qint16(32124));
        server.received.clear();
        server.sendFull(2, 4, QByteArray(80, char(0x00)), 777);
        QTRY_COMPARE(pcm.count(), 2);
        QCOMPARE(pcm.last().first().toByteArray().size(), 160);
        QTRY_COMPARE(framesOf(server.received, kIax, 4).size(), 1);
        QCOMPARE(framesOf(server.received, kIax, 4).first().timestamp, quint32(777));

        // Hang-up sends HANGUP with cause "normal".
        server.received.clear();
        client.hangup();
        QCOMPARE(client.state(), State::Disconnected);
        QTRY_COMPARE(framesOf(server.received, kIax, 5).size(), 1);
        QCOMPARE(framesOf(server.received, kIax, 5).first().ies.value(22), QByteArray("normal"));
    }

    void rejections_data()
    {
        QTest::addColumn<int>("answer");
        QTest::addColumn<QString>("password");
        QTest::addColumn<QString>("reason");
        QTest::newRow("with cause") << int(IaxServer::Answer::RejectWithCause) << ""
                                    << "No such node";
        QTest::newRow("without cause") << int(IaxServer::Answer::RejectWithoutCause) << ""
                                       << "call rejected";
        QTest::newRow("wrong password") << int(IaxServer::Answer::Accept) << "wrong"
                                        << "Authentication failed";
    }

    void rejections()
    {
        QFETCH(int, answer);
        QFETCH(QString, password);
        QFETCH(QString, reason);
        IaxServer server;
        server.setAnswer(IaxServer::Answer(answer));
        if (!password.isEmpty())
            server.setPassword("right");
        IaxClient client;
        account(client, server, password);
        QSignalSpy errors(&client, &IaxClient::errorReported);
        QSignalSpy states(&client, &IaxClient::stateChanged);
        client.call();
        QTRY_COMPARE(errors.count(), 1);
        QCOMPARE(errors.first().first().toString(), reason);
        QCOMPARE(client.state(), State::Disconnected);
        QCOMPARE(states.count(), 2);
    }

    void dtmfAndServerRequests()
    {
        IaxServer server;
        IaxClient client;
        account(client, server);
        QSignalSpy errors(&client, &IaxClient::errorReported);
        client.sendDtmf("1");
        QCOMPARE(errors.count(), 1);
        QCOMPARE(errors.first().first().toString(), QStringLiteral("not connected"));
        client.call();
        QTRY_COMPARE(client.state(), State::Up);
        // ACCEPT and ANSWER are acknowledged before anything else is counted.
        QTRY_COMPARE(framesOf(server.received, kIax, 4).size(), 2);

        server.received.clear();
        client.sendDtmf(QStringLiteral("*70é"));
        // One frame per digit; the character outside 1..127 is skipped, and the digits the
        // server plays back are not acknowledged.
        QTRY_COMPARE(server.received.size(), 3);
        QTest::qWait(50);
        QCOMPARE(server.received.size(), 3);
        QString digits;
        for (const Frame& f : server.received)
            digits += f.type == 1 ? QChar(f.subclass) : u'?';
        QCOMPARE(digits, QStringLiteral("*70"));
        QCOMPARE(quint8(server.received.at(1).oseq - server.received.at(0).oseq), quint8(1));
        QCOMPARE(client.state(), State::Up); // the echoed digits change nothing

        // PING gets PONG without ACK, LAGRQ gets LAGRP, POKE gets PONG.
        server.received.clear();
        server.sendFull(kIax, 2);
        server.sendFull(kIax, 11);
        server.sendFull(kIax, 30);
        QTRY_COMPARE(server.received.size(), 3);
        QCOMPARE(framesOf(server.received, kIax, 3).size(), 2);
        QCOMPARE(framesOf(server.received, kIax, 12).size(), 1);
        QCOMPARE(framesOf(server.received, kIax, 4).size(), 0);

        // Control hangup from the far end ends the call.
        server.sendFull(4, 1);
        QTRY_COMPARE(client.state(), State::Disconnected);
    }

    void keepAlivePings()
    {
        IaxServer server;
        server.setAnswer(IaxServer::Answer::Silent);
        IaxClient client;
        account(client, server);
        client.setPingIntervalForTest(50);
        client.call();
        QTRY_VERIFY(framesOf(server.received, kIax, 2).size() >= 3);
        QCOMPARE(client.state(), State::Connecting); // ACCEPT-less silence keeps it waiting
        client.hangup();
        const qsizetype pings = framesOf(server.received, kIax, 2).size();
        QTest::qWait(200);
        QVERIFY(framesOf(server.received, kIax, 2).size() <= pings + 1);
    }

    void malformedAndTinyDatagrams()
    {
        IaxServer server;
        IaxClient client;
        account(client, server);
        QSignalSpy pcm(&client, &IaxClient::pcmReady);
        client.call();
        QTRY_COMPARE(client.state(), State::Up);
        server.sendRaw(QByteArray::fromHex("00010203"));               // 4 bytes: nothing
        server.sendRaw(QByteArray::fromHex("0001020380"));             // 5 bytes: one sample
        server.sendRaw(QByteArray::fromHex("8001000000000000000006")); // 11 bytes, top bit set: mini
        QTRY_COMPARE(pcm.count(), 2);
        QCOMPARE(pcm.first().first().toByteArray().size(), 2);
        // A REJECT whose cause element overruns reads as no cause.
        QSignalSpy errors(&client, &IaxClient::errorReported);
        server.sendFull(kIax, 6, QByteArray::fromHex("1640") + "short");
        QTRY_COMPARE(errors.count(), 1);
        QCOMPARE(errors.first().first().toString(), QStringLiteral("call rejected"));
    }

    void callNumberWraps()
    {
        // Thirty-two thousand calls into a socket that never reads; their log lines are muted.
        QUdpSocket sink;
        QVERIFY(sink.bind(QHostAddress::LocalHost, 0));
        IaxClient client;
        client.setAccount("127.0.0.1", sink.localPort(), "u", "", "1", "");
        const QtMessageHandler previousHandler =
            qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
        QCOMPARE(client.sourceCallNumber(), quint16(1));
        client.call();
        QCOMPARE(client.sourceCallNumber(), quint16(2));
        quint16 previous = 2;
        for (int i = 2; i <= 32767; ++i) {
            client.call();
            const quint16 now = client.sourceCallNumber();
            QVERIFY(now >= 1 && now <= 32766);
            if (now != previous + 1) {
                QCOMPARE(previous, quint16(32766));
                QCOMPARE(now, quint16(1));
                QCOMPARE(i, 32766);
            }
            previous = now;
        }
        qInstallMessageHandler(previousHandler);
    }
};

QTEST_GUILESS_MAIN(TestIaxClient)
#include "tst_iaxclient.moc"
