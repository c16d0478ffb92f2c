#include "DapnetCore.h"
#include "LogCapture.h"
#include "pocsag/DapnetClient.h"

#include <QSignalSpy>
#include <QTest>

using zl::pocsag::DapnetClient;

class TestDapnet : public QObject {
    Q_OBJECT

private slots:
    // Each line of a logged-in core is answered as the core expects, and only pages go on.
    void coreLines_data()
    {
        QTest::addColumn<QByteArray>("line");
        QTest::addColumn<QByteArray>("answer");
        QTest::addColumn<QString>("page"); // "ric type func text", empty for none
        QTest::newRow("page") << QByteArray("#1F 6:1F:0A2:3:hello") << QByteArray("#20 +") << "162 6 3 hello";
        QTest::newRow("wrap, colons") << QByteArray("#FF 6:1:10:3:a:b") << QByteArray("#00 +") << "16 6 3 a:b";
        QTest::newRow("malformed") << QByteArray("#1F 6:1F:0A2") << QByteArray("#20 -") << "";
        QTest::newRow("xtime") << QByteArray("#05 6:1:10:3:XTIME=1234") << QByteArray("#06 +") << "";
        QTest::newRow("xtime func 6") << QByteArray("#06 6:1:10:6:XTIME=12") << QByteArray("#07 +")
                                      << "16 6 6 XTIME=12";
        QTest::newRow("time message") << QByteArray("#07 5:1:10:0:1234") << QByteArray("#08 +") << "";
        QTest::newRow("second sync") << QByteArray("2:0001") << QByteArray("2:0001:0000") << "";
        QTest::newRow("unknown") << QByteArray("9 what") << QByteArray("-") << "";
    }
    void coreLines()
    {
        QFETCH(QByteArray, line);
        QFETCH(QByteArray, answer);
        QFETCH(QString, page);
        LogCapture log;
        DapnetCore core;
        core.goodLogin = "[Plaigle v20260214 xx0tx k3y-s3cret]";
        DapnetClient client;
        client.setServer("127.0.0.1", core.port());
        client.setTransmitter(" XX0TX ", "k3y-s3cret");
        client.start();
        QTRY_COMPARE(core.lines.count("+"), 3);
        QCOMPARE(client.state(), DapnetClient::State::LoggedIn);
        QSignalSpy pages(&client, &DapnetClient::pageReceived);
        QSignalSpy states(&client, &DapnetClient::stateChanged);
        core.send(line);
        QTRY_VERIFY(core.lines.contains(answer));
        QStringList got;
        for (const QList<QVariant>& p : std::as_const(pages))
            got.append(QStringList{p[0].toString(), p[1].toString(), p[2].toString(), p[3].toString()}.join(' '));
        QCOMPARE(got.join('|'), page);
        QCOMPARE(states.count(), 0);
        QVERIFY(!log.contains("k3y-s3cret"));
    }

    // Refused logins move along the wait table up to ten minutes; a login starts it again.
    void refusedLoginsBackOff()
    {
        DapnetCore core;
        core.goodLogin = "[Plaigle v20260214 xx0tx k3y]";
        core.refusals = 11;
        DapnetClient client;
        client.setTimersForTests(1000);
        QList<int> waits;
        connect(&client, &DapnetClient::stateChanged, &client, [&](DapnetClient::State s) {
            if (s == DapnetClient::State::Connecting)
                waits.append(client.reconnectDelayMs());
        });
        client.setServer("127.0.0.1", core.port());
        client.setTransmitter("xx0tx", "k3y");
        client.start();
        QTRY_COMPARE_WITH_TIMEOUT(client.state(), DapnetClient::State::LoggedIn, 20000);
        QCOMPARE(client.reconnectDelayMs(), 2000);
        QCOMPARE(waits,
                 (QList<int>{2000, 4000, 8000, 10000, 20000, 60000, 120000, 240000, 480000, 600000, 600000, 600000}));
        QCOMPARE(core.lines.count("+"), 11 + 3);
    }
};

QTEST_MAIN(TestDapnet)
#include "tst_dapnet.moc"
