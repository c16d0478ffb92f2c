// Peer settings: their JSON, the identity and credential rules, band offsets and the master lists.
#include "TempConfigHome.h"
#include "app/Config.h"
#include "app/Identity.h"
#include "dmr/Peer.h"

#include <QDateTime>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSignalSpy>
#include <QTest>

using namespace zl;
using namespace zl::dmr;

namespace {

QJsonObject json(const char* text)
{
    return QJsonDocument::fromJson(text).object();
}

void setHomeIdentity(const QString& essid = {})
{
    Identity id;
    id.label = "Home";
    id.callsign = "XX0ABC";
    id.id_field = "2400000";
    id.essid = essid;
    setIdentities("dmr", {id});
}

} // namespace

class TestPeer : public QObject {
    Q_OBJECT

    TempConfigHome home;

private slots:
    void init()
    {
        Config::instance().setSection("dmr", {});
        setIdentities("dmr", {});
    }

    // Defaults are not written; zero talkgroups read back as the default 1; what is written reads back.
    void peerJson()
    {
        QCOMPARE(peerToJson(Peer()).keys(),
                 (QStringList{"color_code", "height", "label", "latitude", "longitude", "power", "rx_freq",
                              "rx_jitter_ms", "ts1_tg", "ts2_tg", "tx_freq", "use_password"}));
        const Peer defaults = peerFromJson({});
        QCOMPARE(defaults.rx_freq, 433000000u);
        QCOMPARE(defaults.color_code, 1);
        QCOMPARE(defaults.rx_jitter_ms, 120);
        QCOMPARE(defaults.ts2_tg, 1u);
        QVERIFY(defaults.send_location && defaults.use_password);

        Peer p;
        p.ts1_tg = 0;
        QVERIFY(!peerToJson(p).contains("ts1_tg"));
        QCOMPARE(peerFromJson(peerToJson(p)).ts1_tg, 1u);
        p.ts1_tg = 4000;
        p.label = "BM home";
        p.server = "[::1]:62031";
        p.use_api_key = true;
        p.use_password = false;
        p.rx_freq = 4294967295u;
        p.latitude = 59.3293f;
        p.ts2_tg = 91;
        p.src_rewrite = QStringList{"a", "b"};
        p.send_location = false;
        p.duplex = true;
        p.priority_slot = 2;
        const QJsonObject o = peerToJson(p);
        QCOMPARE(o.value("send_location"), QJsonValue(false));
        QCOMPARE(o.value("priority_slot").toInt(), 2);
        QCOMPARE(peerToJson(peerFromJson(o)), o);
        QCOMPARE(peerFromJson(o).rx_freq, 4294967295u);
    }

    void oldAndMissingKeys_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<uint>("ts1");
        QTest::addColumn<uint>("ts2");
        QTest::addColumn<bool>("usePassword");
        QTest::newRow("empty") << QByteArray("{}") << 1u << 1u << true;
        QTest::newRow("ts1 off") << QByteArray(R"({"ts1_active": false})") << 0u << 1u << true;
        QTest::newRow("ts2 off") << QByteArray(R"({"ts1_active": true, "ts2_active": false})") << 1u << 0u << true;
        QTest::newRow("tg wins") << QByteArray(R"({"ts1_active": false, "ts1_tg": 91})") << 91u << 1u << true;
        QTest::newRow("api key") << QByteArray(R"({"use_api_key": true})") << 1u << 1u << false;
        QTest::newRow("both") << QByteArray(R"({"use_api_key": true, "use_password": true})") << 1u << 1u << true;
    }

    void oldAndMissingKeys()
    {
        QFETCH(QByteArray, text);
        const Peer p = peerFromJson(::json(text.constData()));
        QTEST(uint(p.ts1_tg), "ts1");
        QTEST(uint(p.ts2_tg), "ts2");
        QTEST(p.use_password, "usePassword");
    }

    void peerIdFromOverridesAndIdentity_data()
    {
        QTest::addColumn<QStringList>("identityIdEssid");
        QTest::addColumn<uint>("peer");
        QTest::newRow("identity") << QStringList{"Home", "", ""} << 240000007u;
        QTest::newRow("essid override") << QStringList{"Home", "", "12"} << 240000012u;
        QTest::newRow("plain id") << QStringList{"", "2400000", ""} << 240000000u;
        QTest::newRow("bad essid") << QStringList{"", "2400000", "x"} << 240000000u;
        QTest::newRow("bad id") << QStringList{"", "abc", ""} << 0u;
        QTest::newRow("too long") << QStringList{"", "99999999999", ""} << 0u;
        QTest::newRow("x100 wraps") << QStringList{"", "4294967295", ""} << uint(4294967295u * 100u);
    }

    void peerIdFromOverridesAndIdentity()
    {
        QFETCH(QStringList, identityIdEssid);
        setHomeIdentity("7");
        Peer p;
        p.identity_label = identityIdEssid.at(0);
        p.dmrid_override = identityIdEssid.at(1);
        p.essid_override = identityIdEssid.at(2);
        QTEST(uint(peerId(p)), "peer");
        p.dmrid_override = "2400001";
        QCOMPARE(dmrId(p), 2400001u);
    }

    void profileServerSplit_data()
    {
        QTest::addColumn<QStringList>("serverHost");
        QTest::addColumn<int>("port");
        QTest::newRow("host:port") << QStringList{"example.org:55555", "example.org"} << 55555;
        QTest::newRow("port 0") << QStringList{"example:0", "example"} << 62031;
        QTest::newRow("no port") << QStringList{"example", "example"} << 62031;
        QTest::newRow("bad port") << QStringList{"example:x", "example"} << 62031;
        QTest::newRow("too big") << QStringList{"example:70000", "example"} << 62031;
        QTest::newRow("ipv6") << QStringList{"[::1]:62031", "[::1]"} << 62031;
        QTest::newRow("leading colon") << QStringList{":5000", ":5000"} << 62031;
    }

    void profileServerSplit()
    {
        QFETCH(QStringList, serverHost);
        Peer p;
        p.server = serverHost.at(0);
        const DmrPeerClient::Profile profile = profileFor(p);
        QCOMPARE(profile.host, serverHost.at(1));
        QTEST(int(profile.port), "port");
    }

    void profileFromIdentityAndOverrides()
    {
        setHomeIdentity();
        Peer p;
        p.identity_label = "Home";
        p.rx_jitter_ms = 0;
        QCOMPARE(profileFor(p).networkName, QString("Custom"));
        QCOMPARE(profileFor(p).callsign, QString("XX0ABC"));
        QCOMPARE(profileFor(p).peerId, 240000000u);
        QCOMPARE(profileFor(p).rxJitterMs, 0);
        p.callsign_override = "XX9ZZZ";
        p.network = "TGIF";
        QCOMPARE(profileFor(p).callsign, QString("XX9ZZZ"));
        QCOMPARE(profileFor(p).networkName, QString("TGIF"));
    }

    // Network, own password, the password sent; use_api_key, use_password.
    void passwordChoice_data()
    {
        QTest::addColumn<QStringList>("texts");
        QTest::addColumn<bool>("apiKey");
        QTest::addColumn<bool>("usePassword");
        QTest::newRow("default") << QStringList{"brandmeister", "", "hunter99"} << false << true;
        QTest::newRow("own") << QStringList{"brandmeister", "pw", "pw"} << false << true;
        QTest::newRow("api key only") << QStringList{"brandmeister", "pw", "bmkey"} << true << false;
        QTest::newRow("password first") << QStringList{"brandmeister", "pw", "pw"} << true << true;
        QTest::newRow("key when empty") << QStringList{"brandmeister", "", "bmkey"} << true << true;
        QTest::newRow("other network") << QStringList{"Other", "", "hunter99"} << true << true;
    }

    void passwordChoice()
    {
        QFETCH(QStringList, texts);
        Config::instance().setSection("dmr", QJsonObject{{"bm_api_key", " bmkey "}});
        Peer p;
        p.network = texts.at(0);
        p.password = texts.at(1);
        QFETCH(bool, apiKey);
        QFETCH(bool, usePassword);
        p.use_api_key = apiKey;
        p.use_password = usePassword;
        QCOMPARE(profileFor(p).password, texts.at(2));
    }

    // Key reference, network, the key used.
    void apiKeyResolution_data()
    {
        QTest::addColumn<QStringList>("texts");
        QTest::newRow("peer") << QStringList{"peer", "", "own"};
        QTest::newRow("bm") << QStringList{"bm:main", "", "bm-main"};
        QTest::newRow("tgif") << QStringList{"tgif:main", "", "tgif-main"};
        QTest::newRow("unknown kind") << QStringList{"anything:main", "", "bm-main"};
        QTest::newRow("missing, tgif") << QStringList{"tgif:missing", "tgif", "old-tgif"};
        QTest::newRow("missing, bm") << QStringList{"tgif:missing", "Brandmeister", "old-bm"};
        QTest::newRow("missing, other") << QStringList{"tgif:missing", "FreeDMR", "own"};
    }

    void apiKeyResolution()
    {
        QFETCH(QStringList, texts);
        Config::instance().setSection("dmr", ::json(R"({"bm_api_key": "old-bm", "tgif_api_key": " old-tgif ",
            "bm_api_keys": [{"name": "main", "key": " bm-main "}],
            "tgif_api_keys": [{"name": "main", "key": "tgif-main"}]})"));
        Peer p;
        p.api_key = " own ";
        p.api_key_ref = texts.at(0);
        p.network = texts.at(1);
        QCOMPARE(resolveApiKey(p), texts.at(2));
    }

    void tgifCredentialsAndToken()
    {
        Config::instance().setSection(
            "dmr", ::json(R"({"tgif_api_keys": [{"name": "acc", "callsign": " xx0abc ", "password": " p w ",
            "token": "", "key": "k1"}, {"name": "other", "key": "k2"}]})"));
        Peer p;
        p.api_key_ref = "TGIF:acc";
        QCOMPARE(tgifCredentials(p).name, QString());
        p.api_key_ref = "tgif:acc";
        TgifCredentials c = tgifCredentials(p);
        QCOMPARE(c.name, QString("acc"));
        QCOMPARE(c.callsign, QString("XX0ABC"));
        QCOMPARE(c.password, QString(" p w "));
        QCOMPARE(c.token, QString("k1"));
        p.api_key_ref = "tgif:other";
        p.callsign_override = " xx9zzz";
        QCOMPARE(tgifCredentials(p).callsign, QString("XX9ZZZ"));

        QSignalSpy changed(&Config::instance(), &Config::configChanged);
        const qint64 before = QDateTime::currentSecsSinceEpoch();
        storeTgifToken("acc", "tok");
        storeTgifToken("nobody", "zzz");
        QCOMPARE(changed.count(), 0);
        const QJsonObject section = Config::instance().section("dmr");
        const QJsonObject element = section.value("tgif_api_keys").toArray().at(0).toObject();
        QCOMPARE(element.value("token").toString(), QString("tok"));
        QCOMPARE(element.value("key").toString(), QString("tok"));
        QVERIFY(element.value("token_ts").toInteger() >= before);
        QCOMPARE(section.value("tgif_api_key").toString(), QString("tok"));
    }

    void bandOffsetRules()
    {
        QCOMPARE(offsetForRx(145000000), -600000);
        QCOMPARE(offsetForRx(439000000), -2000000);
        QCOMPARE(offsetForRx(148000000), -600000);
        QCOMPARE(offsetForRx(150000000), 0);
        setBandOffsets({{"23cm", 1240000000, 1300000000, -28000000}});
        QCOMPARE(bandOffsets().size(), 1);
        QCOMPARE(offsetForRx(1298000000), -28000000);
        QCOMPARE(offsetForRx(145000000), 0);
    }

    void hostsFileParsing()
    {
        const QByteArray text = "# comment\n\n"
                                "BM_2341_United_Kingdom\t2341\t2341.example\tpw\t62031\n"
                                "BM_Germany 2621 de.example pw 62031\n"
                                "BM_2622_Germany 2622 de2.example pw 62031\r\n"
                                "  TGIF_Network   0000  tgif.example pw 62031  \n"
                                "HB_US_Two 20 b.example pw 62030\n"
                                "HB_US_Two 3 a.example pw 62031\n"
                                "DMR+_IPSC2-Canada 168109 ca.example PASSWORD 55555\n"
                                "FreeDMR_Belgium 2061 be.example pw 62031\n"
                                "FD_ADN_Spain 2141 es.example pw 62031\n"
                                "SystemX_United_States 0000 us.example pw 62031\n"
                                "XLX_001 0000 xlx.example pw 62030\n"
                                "HB_short 0000 host pw\n";
        const auto table = parseMasterHosts(text);
        QCOMPARE(table.size(), 7);
        const QList<MasterHost> bm = table.value("Brandmeister");
        QCOMPARE(bm.size(), 3);
        QCOMPARE(bm.at(0).label + bm.at(0).id, QString("Germany2621"));
        QCOMPARE(bm.at(1).label + bm.at(1).id, QString("Germany2622"));
        QCOMPARE(bm.at(2).label, QString("United Kingdom"));
        QCOMPARE(bm.at(2).address, QString("2341.example:62031"));
        QCOMPARE(table.value("TGIF").constFirst().label, QString("TGIF Network"));
        QCOMPARE(table.value("TGIF").constFirst().id, QString());
        const QList<MasterHost> hb = table.value("HBLink");
        QCOMPARE(hb.size(), 2);
        QCOMPARE(hb.at(0).label + hb.at(0).id, QString("US Two3")); // equal labels sort by numeric id
        QCOMPARE(table.value("IPSC2 / DMR+").constFirst().label, QString("Canada"));
        QCOMPARE(table.value("FreeDMR").constFirst().label, QString("Belgium"));
        QCOMPARE(table.value("ADN Systems").constFirst().label, QString("Spain"));
        QCOMPARE(table.value("FreeStar / SystemX").constFirst().address, QString("us.example:62031"));

        QFile file(QStringLiteral(ZL_SOURCE_DIR "/assets/DMR_Hosts.txt"));
        QVERIFY(file.open(QIODevice::ReadOnly));
        const auto shipped = parseMasterHosts(file.readAll());
        for (const char* group : {"Brandmeister", "TGIF", "HBLink", "IPSC2 / DMR+", "FreeDMR", "FreeStar / SystemX"})
            QVERIFY2(!shipped.value(group).isEmpty(), group);
        for (const QList<MasterHost>& hosts : shipped) {
            for (const MasterHost& host : hosts)
                QVERIFY(host.address.contains(':'));
        }
    }
};

QTEST_GUILESS_MAIN(TestPeer)
#include "tst_peer.moc"
