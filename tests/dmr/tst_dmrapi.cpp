#include "BmApiServer.h"
#include "LogCapture.h"
#include "SvxTestCa.h"
#include "TempConfigHome.h"
#include "TgifServer.h"
#include "app/Config.h"
#include "dmr/BmApiClient.h"
#include "dmr/TgifApiClient.h"
#include "dmr/TgifScanClient.h"
#include "dmr/TgifSocketClient.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QSignalSpy>
#include <QTest>

using zl::dmr::BmApiClient;
using zl::dmr::BmProfile;
using zl::dmr::ScanConfig;
using zl::dmr::TgifApiClient;
using zl::dmr::TgifScanClient;
using zl::dmr::TgifStatus;

namespace {

const QString kKey = QStringLiteral("SENTINEL-bm-key-0123456789");
constexpr quint32 kDevice = 240000101;

QString listed(const QList<zl::dmr::BmStatic>& list)
{
    QStringList out;
    for (const zl::dmr::BmStatic& s : list)
        out << QStringLiteral("%1/%2").arg(s.tg).arg(s.slot);
    return out.join(QLatin1Char(' '));
}

} // namespace

class TestDmrApi : public QObject {
    Q_OBJECT

private:
    SvxTestCa ca{QStringLiteral("Test Web CA")};
    SvxTestCa::Issued cert = ca.issueServer(QStringLiteral("IP:127.0.0.1"));
    LogCapture log;

    void point(BmApiClient& client, const WebServer& server, const QString& key = kKey)
    {
        client.setBase(server.origin());
        client.setApiKey(key);
        client.setDeviceId(kDevice);
    }

    void point(TgifApiClient& client, const TgifServer& server, const QString& password = "SENTINEL-pass",
               const QString& token = {})
    {
        client.setHost(QStringLiteral("127.0.0.1:62031"));
        client.setPortsForTests(server.port(), server.sidePort());
        client.setHotspotId(kDevice);
        client.setAccount(QStringLiteral("mine"), QStringLiteral("XX0ABC"), password, token);
        // Long enough for a TLS round trip on a loaded machine; the silent server's case waits less.
        client.socketClient()->setPollTimeoutForTests(token.isEmpty() ? 5000 : 300);
    }

    static QString status(const QSignalSpy& spy, int i)
    {
        const auto st = spy.at(i).at(0).value<TgifStatus>();
        return QStringLiteral("%1 %2 %3").arg(st.connected).arg(st.ts1Talkgroup).arg(st.ts2Talkgroup);
    }

private slots:
    void initTestCase() { WebServer::trustAuthority(ca.certPem()); }

    void apiBase_data()
    {
        QTest::addColumn<QString>("server");
        QTest::addColumn<QString>("base");
        QTest::newRow("master with port") << "2001.master.brandmeister.network:62031"
                                          << "https://api.brandmeister.network";
        QTest::newRow("one label") << " localhost "
                                   << "https://api.localhost";
        QTest::newRow("empty") << ":62031"
                               << "";
    }
    void apiBase()
    {
        QFETCH(QString, server);
        QFETCH(QString, base);
        QCOMPARE(BmApiClient::apiBaseForServer(server), base);
    }

    // The subscription shapes the service has used over time.
    void profileShapes()
    {
        BmProfile p;
        QVERIFY(zl::dmr::parseBmProfile(R"({"staticSubscriptions":[{"talkgroup":{"id":"91"},"timeslot":"1"},
            {"group":262,"ts":2},{"tg":"0","slot":1}],"dynamicSubscriptions":[{"id":9990,"slot":2}]})",
                                        p));
        QCOMPARE(listed(p.staticTalkgroups) + " | " + listed(p.dynamicTalkgroups), QString("91/1 262/2 | 9990/2"));
        QVERIFY(!zl::dmr::parseBmProfile("[1,2]", p));
    }

    // The profile from the service, all three kinds; removing a static group (the window's test
    // adds one and drops the dynamic ones).
    void profileAndRemoval()
    {
        BmApiServer server(cert.certPem, cert.keyPem, kKey, kDevice);
        server.staticSubscriptions = {QJsonObject{{"talkgroup", 91}, {"slot", 1}, {"repeaterid", qint64(kDevice)}}};
        server.dynamicSubscriptions = {QJsonObject{{"talkgroup", 262}, {"slot", 2}, {"timeout", 900}}};
        server.timedSubscriptions = {QJsonObject{{"talkgroup", 2625}, {"slot", 1}}};
        BmApiClient client;
        point(client, server);
        QSignalSpy profiles(&client, &BmApiClient::profileFetched);
        QSignalSpy statics(&client, &BmApiClient::staticTalkgroups);
        QSignalSpy actions(&client, &BmApiClient::actionDone);
        client.fetchProfile();
        QTRY_COMPARE(profiles.count(), 1);
        const auto p = profiles.takeFirst().at(0).value<BmProfile>();
        QCOMPARE(listed(p.staticTalkgroups) + " | " + listed(p.dynamicTalkgroups) + " | " + listed(p.timedTalkgroups),
                 QString("91/1 | 262/2 | 2625/1"));
        QCOMPARE(statics.count(), 1);
        QCOMPARE(server.requests.constFirst().headers.value("accept"), QByteArray("application/json"));
        client.removeStatic(91, 1);
        QTRY_COMPARE(actions.count(), 1);
        QCOMPARE(actions.at(0).at(1).toString(), QString("DEL static TG 91 TS1 OK"));
        QVERIFY(server.staticSubscriptions.isEmpty());
    }

    void failures_data()
    {
        QTest::addColumn<QString>("setup");
        QTest::addColumn<QString>("expected");
        QTest::newRow("wrong key") << "key"
                                   << "BM API profile: unexpected reply (HTTP 401): {\"message\"";
        QTest::newRow("other device") << "device"
                                      << "BM API profile: unexpected reply (HTTP 404): ";
        QTest::newRow("web page") << "html"
                                  << "BM API profile: unexpected reply (HTTP 200): <!DOCTYPE html>";
        QTest::newRow("certificate of another authority") << "cert"
                                                          << "BM API profile fel: HTTP 0 — ";
        QTest::newRow("no key") << "nokey"
                                << "BM API: missing base/key/hotspot ID";
    }
    void failures()
    {
        QFETCH(QString, setup);
        QFETCH(QString, expected);
        SvxTestCa other(QStringLiteral("Other CA"));
        const SvxTestCa::Issued foreign = other.issueServer(QStringLiteral("IP:127.0.0.1"));
        const SvxTestCa::Issued& used = setup == "cert" ? foreign : cert;
        BmApiServer server(used.certPem, used.keyPem, kKey, setup == "device" ? kDevice + 1 : kDevice);
        if (setup == "html")
            server.htmlInstead = "<!DOCTYPE html><html><body>Checking your browser…</body></html>";
        BmApiClient client;
        point(client, server, setup == "key" ? "SENTINEL-other-key" : setup == "nokey" ? "" : kKey);
        QSignalSpy errors(&client, &BmApiClient::errorReported);
        client.fetchProfile();
        QTRY_COMPARE(errors.count(), 1);
        QVERIFY2(errors.at(0).at(0).toString().startsWith(expected), qPrintable(errors.at(0).at(0).toString()));
        QVERIFY(!log.contains("SENTINEL"));
    }

    // A refused action says what to do about the key; a long answer is cut to 200 bytes.
    void refusedActions()
    {
        BmApiServer server(cert.certPem, cert.keyPem, kKey, kDevice);
        BmApiClient client;
        point(client, server, QStringLiteral("SENTINEL-stale-key"));
        QSignalSpy actions(&client, &BmApiClient::actionDone);
        client.addStatic(91, 1);
        QTRY_COMPARE(actions.count(), 1);
        QCOMPARE(actions.at(0).at(0).toBool(), false);
        const QString message = actions.at(0).at(1).toString();
        QVERIFY2(message.startsWith("ADD static TG 91 TS1 failed: HTTP 401 — ") &&
                     message.contains("Settings → API → BrandMeister"),
                 qPrintable(message));

        WebServer broken(
            [](const WebServer::Request&) {
                return WebServer::Reply{500, "text/plain", QByteArray(500, 'e'), {}};
            },
            cert.certPem, cert.keyPem);
        point(client, broken);
        client.dropDynamic(1);
        QTRY_COMPARE(actions.count(), 2);
        QCOMPARE(actions.at(1).at(1).toString(), "drop dynamic TS1 failed: HTTP 500 — " + QString(200, 'e'));
        QVERIFY(!log.contains("SENTINEL"));
    }

    // The sessions list and the side port: the disconnect group 4000 reads as none, a hotspot
    // that is not logged in is refused with the reason.
    void tgifSessionsAndSidePort()
    {
        TgifServer server(cert.certPem, cert.keyPem);
        server.sessions = {{kDevice, 4000, 91}};
        TgifApiClient client;
        point(client, server);
        QSignalSpy statuses(&client, &TgifApiClient::statusFetched);
        QSignalSpy actions(&client, &TgifApiClient::actionDone);
        client.fetchStatus();
        QTRY_COMPARE(statuses.count(), 1);
        QCOMPARE(status(statuses, 0), QString("1 0 91"));
        client.setTalkgroup(1, 3100);
        QTRY_COMPARE(actions.count(), 1);
        QCOMPARE(actions.at(0).at(1).toString(), QString("set TS1 → TG 3100 OK"));
        QCOMPARE(server.sessions.at(0).ts1, 3100u);

        server.sessions.clear();
        client.fetchStatus();
        client.setTalkgroup(2, 0);
        QTRY_COMPARE(actions.count(), 2);
        QTRY_COMPARE(statuses.count(), 2);
        QCOMPARE(status(statuses, 1), QString("0 0 0"));
        QVERIFY(actions.at(1).at(1).toString().startsWith("clear TS2 failed: HTTP 404 — 404\n\nTGIF refused:"));
    }

    // The self-care page: a login fetches the token and keeps it with the account's key; an
    // expired token is noticed, and the job runs once more after a new login.
    void tgifSelfCare()
    {
        TempConfigHome home;
        zl::Config::instance().setSection(
            "dmr", {{"tgif_api_keys", QJsonArray{QJsonObject{{"name", "mine"}, {"callsign", "XX0ABC"}}}}});
        TgifServer server(cert.certPem, cert.keyPem);
        server.sessions = {{kDevice, 0, 91}};
        server.password = "SENTINEL-pass";
        server.apiToken = "SENTINEL-token-1";
        TgifApiClient client;
        point(client, server);
        QSignalSpy statuses(&client, &TgifApiClient::statusFetched);
        QSignalSpy actions(&client, &TgifApiClient::actionDone);
        auto* socket = client.socketClient();
        client.withToken([socket] { socket->fetchSessions(QString::number(kDevice)); });
        QTRY_COMPARE(statuses.count(), 1);
        QCOMPARE(status(statuses, 0), QString("1 0 91"));
        QTRY_COMPARE(actions.count(), 1);
        QCOMPARE(actions.at(0).at(1).toString(), QString("TGIF sessions OK (1 sessions)"));
        QCOMPARE(zl::Config::instance().section("dmr")["tgif_api_keys"][0]["token"].toString(),
                 QString("SENTINEL-token-1"));

        server.apiToken = "SENTINEL-token-2";
        client.withToken([socket] { socket->setTalkgroup(QString::number(kDevice), 2, 262); });
        QTRY_COMPARE(actions.count(), 3);
        QCOMPARE(actions.at(1).at(1).toString(),
                 QString("TGIF does not accept the api_token (status 401) — token expired or wrong."));
        QCOMPARE(actions.at(2).at(1).toString(), QString("set TS2 → TG 262 OK"));
        QCOMPARE(server.sessions.at(0).ts2, 262u);
        QCOMPARE(server.events, QStringList({"handshake", "cli-state", "handshake", "handshake", "selfcare:settg"}));
        QVERIFY(!log.contains("SENTINEL"));
    }

    void tgifFailures_data()
    {
        QTest::addColumn<QString>("setup");
        QTest::addColumn<QString>("expected");
        QTest::newRow("wrong password") << "password"
                                        << "TGIF login failed for XX0ABC: Wrong callsign or password";
        QTest::newRow("silent socket") << "silent"
                                       << "TGIF: no reply to handshake.";
        QTest::newRow("no account") << "account"
                                    << "TGIF login: missing host, callsign or password";
    }
    void tgifFailures()
    {
        QFETCH(QString, setup);
        QFETCH(QString, expected);
        TgifServer server(cert.certPem, cert.keyPem);
        server.password = "SENTINEL-pass";
        server.apiToken = "SENTINEL-token";
        server.answerSocket = setup != "silent";
        TgifApiClient client;
        point(client, server,
              setup == "password"  ? "SENTINEL-wrong"
              : setup == "account" ? ""
                                   : "SENTINEL-pass",
              setup == "silent" ? "SENTINEL-token" : "");
        QSignalSpy errors(&client, &TgifApiClient::errorReported);
        auto* socket = client.socketClient();
        client.withToken([socket] { socket->fetchSessions(QString::number(kDevice)); });
        QTRY_COMPARE(errors.count(), 1);
        QCOMPARE(errors.at(0).at(0).toString(), expected);
        QVERIFY(!log.contains("SENTINEL"));
    }

    // The custom scan through the site's pages: signed in on first need, the list read in priority
    // order (a key that is no talkgroup ignored), a change, and a form token that the site has
    // replaced costs one more visit to the form.
    void tgifScan()
    {
        TgifServer server(cert.certPem, cert.keyPem);
        server.password = "SENTINEL-pass";
        server.apiToken = "SENTINEL-token";
        TgifScanClient client;
        client.setAccount(QStringLiteral("127.0.0.1:%1").arg(server.port()), "XX0ABC", "SENTINEL-pass");
        QSignalSpy configs(&client, &TgifScanClient::configFetched);
        QSignalSpy actions(&client, &TgifScanClient::actionDone);
        const auto listedScan = [&configs] {
            const auto cfg = configs.takeLast().at(0).value<ScanConfig>();
            QStringList out{QString::number(cfg.dwellSeconds)};
            for (const auto& [tg, priority] : cfg.talkgroups)
                out << QStringLiteral("%1:%2").arg(tg).arg(priority);
            return out.join(QLatin1Char(' '));
        };
        client.refresh();
        QTRY_COMPARE(configs.count(), 1);
        QCOMPARE(listedScan(), QString("15 3100:1 91:2"));
        client.addTalkgroup(262, 3);
        QTRY_COMPARE(configs.count(), 1);
        QCOMPARE(actions.at(0).at(1).toString(), QString("add TG 262 (prio 3) OK"));
        QCOMPARE(listedScan(), QString("15 3100:1 91:2 262:3"));

        server.csrf = "c0ffee02";
        const auto forms = [&server] {
            return std::count_if(server.requests.cbegin(), server.requests.cend(),
                                 [](const WebServer::Request& r) { return r.path == "/scan_config.php"; });
        };
        const auto before = forms();
        client.setDwell(20);
        QTRY_COMPARE(configs.count(), 1);
        QCOMPARE(actions.at(1).at(1).toString(), QString("dwell 20 s OK"));
        QCOMPARE(forms(), before + 1);
        QVERIFY(!log.contains("SENTINEL"));
    }

    // A wrong password locks the scan for 30 minutes: the next operation sends nothing.
    void tgifScanLock()
    {
        TgifServer server(cert.certPem, cert.keyPem);
        server.password = "SENTINEL-pass";
        TgifScanClient client;
        qint64 now = 1'000'000;
        client.setClockForTests([&now] { return now; });
        client.setAccount(QStringLiteral("127.0.0.1:%1").arg(server.port()), "XX0ABC", "SENTINEL-wrong");
        QSignalSpy errors(&client, &TgifScanClient::errorReported);
        client.refresh();
        QTRY_COMPARE(errors.count(), 1);
        QVERIFY(errors.at(0).at(0).toString().startsWith(
            "TGIF login failed for XX0ABC: Wrong callsign or password — no new attempts for 30 min"));
        const qsizetype sent = server.requests.size();
        now += 29 * 60 * 1000 - 1;
        client.setDwell(20);
        QCOMPARE(errors.count(), 2);
        QCOMPARE(errors.at(1).at(0).toString(), QString("TGIF: login blocked for another 2 min after a failed attempt "
                                                        "— TGIF login failed for XX0ABC: Wrong callsign or password"));
        QCOMPARE(server.requests.size(), sent);
    }
};

QTEST_GUILESS_MAIN(TestDmrApi)
#include "tst_dmrapi.moc"
