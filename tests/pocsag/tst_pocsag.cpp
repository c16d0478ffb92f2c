#include "DapnetCore.h"
#include "LogCapture.h"
#include "TempConfigHome.h"
#include "app/Config.h"
#include "pocsag/DapnetClient.h"
#include "ui/PocsagModePage.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QTableWidget>
#include <QTest>

class TestPocsag : public QObject {
    Q_OBJECT
    TempConfigHome home;
    DapnetCore core{"[Plaigle v20260214 xx0tx authk3y]", "Basic ZGwxYWJjOnMzY3JldA=="};
    std::optional<LogCapture> log; // installed once the test runner has set its own handler

    QString pagesFile() const { return QFileInfo(zl::Config::instance().path()).dir().filePath("pocsag_pages.json"); }

    // The page logged in to the core with the account's password, with no pages kept yet.
    std::unique_ptr<PocsagModePage> loggedInPage(const QString& password)
    {
        core.lines.clear();
        core.calls.clear();
        QFile::remove(pagesFile());
        const QJsonObject server{{"id", "user-1"}, {"name", "loopback"}, {"host", "127.0.0.1"}, {"port", core.port()}};
        QJsonObject pocsag{{"enabled", true},      {"tx_name", " XX0TX "}, {"auth_key", "authk3y"},
                           {"username", "dl1abc"}, {"password", password}, {"rics", "99, 1234"}};
        pocsag.insert("user_servers", QJsonArray{server});
        pocsag.insert("selected_server_ids", QJsonArray{"user-1"});
        zl::Config::instance().setSection("pocsag", pocsag);
        auto page = std::make_unique<PocsagModePage>();
        page->client()->setApiBaseForTests(core.apiBase());
        [&] { QTRY_COMPARE(core.lines.count("+"), 3); }();
        return page;
    }

private slots:
    void initTestCase() { log.emplace(); }
    void cleanup() { QVERIFY(!log->contains("authk3y") && !log->contains("s3cret")); }

    // Each line of the core gets its answer; pages are listed, those to own RICs marked, and kept.
    void coreLines_data()
    {
        QTest::addColumn<QByteArray>("line");
        QTest::addColumn<QByteArray>("answer");
        QTest::addColumn<QString>("row"); // RIC|mark|type|text, empty for none
        QTest::newRow("own RIC, wrap") << QByteArray("#FF 6:1:4D2:3:a:b") << QByteArray("#00 +") << "1234|✓|text|a:b";
        QTest::newRow("other RIC") << QByteArray("#08 6:1:3E8:1:hi") << QByteArray("#09 +") << "1000||alert 1|hi";
        QTest::newRow("numeric") << QByteArray("#1F 6:1F:63:0:0815") << QByteArray("#20 +") << "99|✓|numeric|0815";
        QTest::newRow("malformed") << QByteArray("#1F 6:1F:0A2") << QByteArray("#20 -") << "";
        QTest::newRow("xtime") << QByteArray("#05 6:1:10:3:XTIME=1234") << QByteArray("#06 +") << "";
        QTest::newRow("func 6") << QByteArray("#06 6:1:10:6:XTIME=12") << QByteArray("#07 +") << "16||text|XTIME=12";
        QTest::newRow("time message") << QByteArray("#07 5:1:10:0:1234") << QByteArray("#08 +") << "";
        QTest::newRow("second sync") << QByteArray("2:0001") << QByteArray("2:0001:0000") << "";
        QTest::newRow("unknown") << QByteArray("9 what") << QByteArray("-") << "";
    }
    void coreLines()
    {
        QFETCH(QByteArray, line);
        QFETCH(QByteArray, answer);
        QFETCH(QString, row);
        auto page = loggedInPage("s3cret");
        core.send(line);
        QTRY_VERIFY(core.lines.contains(answer));
        QCOMPARE(page->client()->state(), zl::pocsag::DapnetClient::State::LoggedIn);
        QFile file(pagesFile());
        file.open(QIODevice::ReadOnly);
        QJsonObject kept = QJsonDocument::fromJson(file.readAll()).array().at(0).toObject();
        kept.remove("time");
        const QStringList p = row.split('|');
        const QJsonObject expected{
            {"ric", p[0].toInt()}, {"mine", !p.value(1).isEmpty()}, {"type", p.value(2)}, {"text", p.value(3)}};
        QCOMPARE(kept, row.isEmpty() ? QJsonObject() : expected);
        const QTableWidgetItem* mark = page->findChild<QTableWidget*>("pocsagPages")->item(0, 2);
        QCOMPARE(mark ? mark->text() : QString(), p.value(1));
    }

    // Refused logins move along the wait table up to ten minutes, and the core is not given up.
    void refusedLoginsBackOff()
    {
        core.refusals = 11;
        zl::pocsag::DapnetClient client;
        client.setTimersForTests(1000);
        log->clear();
        client.setServer("127.0.0.1", core.port());
        client.setTransmitter("xx0tx", "authk3y");
        client.start();
        QTRY_COMPARE_WITH_TIMEOUT(client.state(), zl::pocsag::DapnetClient::State::LoggedIn, 20000);
        QStringList waits;
        for (const QString& line : log->matching("DapnetClient: next attempt in"))
            waits.append(line.section(' ', -2, -2));
        QCOMPARE(waits.join(' '), "4 8 10 20 60 120 240 480 600 600 600");
    }

    // The form names the first missing item before anything goes out; a page goes out with the account.
    void sendForm_data()
    {
        QTest::addColumn<QStringList>("fields"); // to, group, text; the account's password
        QTest::addColumn<QString>("status");
        QTest::addColumn<QByteArray>("call");
        const QByteArray call = "{\"callSignNames\":[\"DL2XYZ\",\"DL3QQ\"],\"emergency\":false,\"text\":\"" +
                                QByteArray(80, 'x') + "\",\"transmitterGroupNames\":[\"dl-all\",\"all\"]}";
        const QStringList full{"dl2xyz, dl3qq", "dl-all all", QString(90, 'x')};
        QTest::newRow("no recipient") << QStringList{" ", "all", "hi", "pw"} << "Enter a recipient callsign."
                                      << call.left(0);
        QTest::newRow("sent") << full + QStringList{"s3cret"} << "Sent to DL2XYZ, DL3QQ (HTTP 201)" << call;
        QTest::newRow("wrong password") << full + QStringList{"pw"}
                                        << "DAPNET API HTTP 401: Unauthorized — wrong DAPNET username/password" << call;
    }
    void sendForm()
    {
        QFETCH(QStringList, fields);
        QFETCH(QString, status);
        QFETCH(QByteArray, call);
        auto page = loggedInPage(fields.takeLast());
        for (int i = 0; i < fields.size(); ++i)
            page->findChild<QWidget*>(QStringList{"pocsagTo", "pocsagGroup", "pocsagText"}[i])
                ->setProperty("text", fields[i]);
        QTest::mouseClick(page->findChild<QWidget*>("pocsagSend"), Qt::LeftButton);
        QTRY_COMPARE(page->findChild<QWidget*>("pocsagStatus")->property("text").toString(), status);
        QCOMPARE(core.calls.value(0), call);
    }
};

QTEST_MAIN(TestPocsag)
#include "tst_pocsag.moc"
