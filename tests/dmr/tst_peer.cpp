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

void setDmrSection(const QJsonObject& section)
{
    Config::instance().setSection(QStringLiteral("dmr"), section);
}

} // namespace

class TestPeer : public QObject {
    Q_OBJECT

private:
    TempConfigHome home;

private slots:
    void init()
    {
        setDmrSection({});
        setIdentities(QStringLiteral("dmr"), {});
    }

    void defaultPeerWritesOnlyTheAlwaysKeys()
    {
        const QJsonObject o = peerToJson(Peer());
        QCOMPARE(o.keys(), (QStringList{"color_code", "height", "label", "latitude", "longitude", "power", "rx_freq",
                                        "rx_jitter_ms", "ts1_tg", "ts2_tg", "tx_freq", "use_password"}));
        QCOMPARE(o.value("rx_freq").toInteger(), 433000000);
        QCOMPARE(o.value("use_password").toBool(), true);

        // Zero talkgroups, a true send_location and false flags leave no key; the opposite values do.
        Peer p;
        p.ts1_tg = 0;
        p.ts2_tg = 0;
        QVERIFY(!peerToJson(p).contains("ts1_tg"));
        // Zero is the "not written" value, so a slot without talkgroup reads back with the default 1.
        QCOMPARE(peerFromJson(peerToJson(p)).ts1_tg, 1u);
        p.send_location = false;
        p.duplex = true;
        p.priority_slot = 2;
        p.tg_rewrite = QStringList{"2,9,2,9,1"};
        const QJsonObject changed = peerToJson(p);
        QCOMPARE(changed.value("send_location"), QJsonValue(false));
        QCOMPARE(changed.value("duplex"), QJsonValue(true));
        QCOMPARE(changed.value("priority_slot").toInt(), 2);
        QCOMPARE(changed.value("tg_rewrite").toArray().size(), 1);
    }

    void emptyObjectLoadsTheDefaults()
    {
        const Peer p = peerFromJson({});
        QCOMPARE(p.rx_freq, 433000000u);
        QCOMPARE(p.power, 1);
        QCOMPARE(p.color_code, 1);
        QCOMPARE(p.rx_jitter_ms, 120);
        QCOMPARE(p.ts1_tg, 1u);
        QCOMPARE(p.ts2_tg, 1u);
        QVERIFY(p.send_location);
        QVERIFY(p.use_password);
    }

    void fullRoundTrip()
    {
        Peer p;
        p.label = "BM home";
        p.identity_label = "Home";
        p.server = "[::1]:62031";
        p.local_port = 62032;
        p.use_api_key = true;
        p.use_password = false;
        p.options = "TS2=91";
        p.rx_freq = 4294967295u;
        p.latitude = 59.3293f;
        p.longitude = -18.0686f;
        p.ts1_tg = 4000;
        p.ts2_tg = 91;
        p.active_tg = 3100;
        p.src_rewrite = QStringList{"a", "b"};
        p.private_call = true;
        const QJsonObject o = peerToJson(p);
        QCOMPARE(peerToJson(peerFromJson(o)), o);
        const Peer back = peerFromJson(o);
        QCOMPARE(back.rx_freq, 4294967295u);
        QCOMPARE(back.latitude, 59.3293f);
        QCOMPARE(back.ts2_tg, 91u);
        QCOMPARE(back.src_rewrite, (QStringList{"a", "b"}));
    }

    void oldSlotKeys()
    {
        QCOMPARE(peerFromJson(json(R"({"ts1_active": false})")).ts1_tg, 0u);
        QCOMPARE(peerFromJson(json(R"({"ts1_active": true, "ts2_active": false})")).ts2_tg, 0u);
        QCOMPARE(peerFromJson(json(R"({"ts1_active": false, "ts1_tg": 91})")).ts1_tg, 91u);
        QCOMPARE(peerFromJson(json(R"({})")).ts2_tg, 1u);
    }

    void usePasswordFollowsUseApiKeyWhenAbsent()
    {
        QVERIFY(!peerFromJson(json(R"({"use_api_key": true})")).use_password);
        QVERIFY(peerFromJson(json(R"({"use_api_key": true, "use_password": true})")).use_password);
        QVERIFY(peerFromJson(json(R"({})")).use_password);
    }

    void savePeersSignalsAndPersists()
    {
        Peer p;
        p.label = "A";
        QSignalSpy changed(&Config::instance(), &Config::configChanged);
        savePeers({p});
        QCOMPARE(changed.count(), 1);
        QFile file(Config::instance().path());
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QJsonObject root = QJsonDocument::fromJson(file.readAll()).object();
        QCOMPARE(root.value("dmr").toObject().value("peers").toArray().size(), 1);
        QCOMPARE(loadPeers().constFirst().label, QString("A"));
        setDefaultPeerLabel("A");
        QCOMPARE(defaultPeerLabel(), QString("A"));
    }

    void peerIdFromOverridesAndIdentity()
    {
        Identity id;
        id.label = "Home";
        id.callsign = "XX0ABC";
        id.id_field = "2400000";
        id.essid = "7";
        setIdentities("dmr", {id});

        Peer p;
        p.identity_label = "Home";
        QCOMPARE(peerId(p), 240000007u);
        QCOMPARE(dmrId(p), 2400000u);
        p.essid_override = "12";
        QCOMPARE(peerId(p), 240000012u);
        p.dmrid_override = "2400001";
        QCOMPARE(dmrId(p), 2400001u);

        Peer plain;
        plain.dmrid_override = "2400000";
        QCOMPARE(peerId(plain), 240000000u);
        plain.essid_override = "x";
        QCOMPARE(peerId(plain), 240000000u);
        plain.dmrid_override = "abc";
        QCOMPARE(peerId(plain), 0u);
        plain.dmrid_override = "99999999999";
        QCOMPARE(peerId(plain), 0u);
        // x100 wraps modulo 2^32.
        plain.dmrid_override = "4294967295";
        plain.essid_override = "";
        QCOMPARE(peerId(plain), quint32(4294967295u * 100u));
    }

    void profileServerSplit_data()
    {
        QTest::addColumn<QString>("server");
        QTest::addColumn<QString>("host");
        QTest::addColumn<int>("port");
        QTest::newRow("host:port") << "example.org:55555"
                                   << "example.org" << 55555;
        QTest::newRow("port 0") << "example:0"
                                << "example" << 62031;
        QTest::newRow("no port") << "example"
                                 << "example" << 62031;
        QTest::newRow("bad port") << "example:x"
                                  << "example" << 62031;
        QTest::newRow("too big") << "example:70000"
                                 << "example" << 62031;
        QTest::newRow("ipv6") << "[::1]:62031"
                              << "[::1]" << 62031;
        QTest::newRow("leading colon") << ":5000"
                                       << ":5000" << 62031;
        QTest::newRow("empty") << ""
                               << "" << 62031;
    }

    void profileServerSplit()
    {
        QFETCH(QString, server);
        Peer p;
        p.server = server;
        const DmrPeerClient::Profile profile = profileFor(p);
        QTEST(profile.host, "host");
        QTEST(int(profile.port), "port");
    }

    void profileCopiesAndDefaults()
    {
        Identity id;
        id.label = "Home";
        id.callsign = "XX0ABC";
        id.id_field = "2400000";
        setIdentities("dmr", {id});
        Peer p;
        p.label = "L";
        p.identity_label = "Home";
        p.rx_jitter_ms = 0;
        p.duplex = true;
        p.ts2_tg = 91;
        p.location_name = "Town";
        const DmrPeerClient::Profile profile = profileFor(p);
        QCOMPARE(profile.networkName, QString("Custom"));
        QCOMPARE(profile.callsign, QString("XX0ABC"));
        QCOMPARE(profile.peerId, 240000000u);
        QCOMPARE(profile.rxJitterMs, 0);
        QVERIFY(profile.duplex);
        QCOMPARE(profile.ts2Tg, 91u);
        QCOMPARE(profile.locationName, QString("Town"));
        p.callsign_override = "XX9ZZZ";
        p.network = "TGIF";
        QCOMPARE(profileFor(p).callsign, QString("XX9ZZZ"));
        QCOMPARE(profileFor(p).networkName, QString("TGIF"));
    }

    void passwordChoice()
    {
        setDmrSection(QJsonObject{{"bm_api_key", " bmkey "}});
        Peer p;
        p.network = "brandmeister";
        QCOMPARE(profileFor(p).password, QString("hunter99"));
        p.password = "pw";
        QCOMPARE(profileFor(p).password, QString("pw"));
        p.use_api_key = true;
        p.use_password = false;
        QCOMPARE(profileFor(p).password, QString("bmkey"));
        p.use_password = true;
        QCOMPARE(profileFor(p).password, QString("pw"));
        p.password.clear();
        QCOMPARE(profileFor(p).password, QString("bmkey"));
        p.network = "Other";
        QCOMPARE(profileFor(p).password, QString("hunter99"));
    }

    void apiKeyResolution()
    {
        setDmrSection(json(R"({"bm_api_key": "old-bm", "tgif_api_key": " old-tgif ",
            "bm_api_keys": [{"name": "main", "key": " bm-main "}],
            "tgif_api_keys": [{"name": "main", "key": "tgif-main"}]})"));
        Peer p;
        p.api_key = " own ";
        p.api_key_ref = "peer";
        QCOMPARE(resolveApiKey(p), QString("own"));
        p.api_key_ref = "bm:main";
        QCOMPARE(resolveApiKey(p), QString("bm-main"));
        p.api_key_ref = "tgif:main";
        QCOMPARE(resolveApiKey(p), QString("tgif-main"));
        p.api_key_ref = "anything:main";
        QCOMPARE(resolveApiKey(p), QString("bm-main"));
        p.api_key_ref = "tgif:missing";
        p.network = "tgif";
        QCOMPARE(resolveApiKey(p), QString("old-tgif"));
        p.network = "Brandmeister";
        QCOMPARE(resolveApiKey(p), QString("old-bm"));
        p.network = "FreeDMR";
        QCOMPARE(resolveApiKey(p), QString("own"));
    }

    void tgifCredentialsAndToken()
    {
        setDmrSection(json(R"({"tgif_api_keys": [{"name": "acc", "callsign": " xx0abc ", "password": " p w ",
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
        QCOMPARE(changed.count(), 0);
        const QJsonObject section = Config::instance().section("dmr");
        const QJsonObject element = section.value("tgif_api_keys").toArray().at(0).toObject();
        QCOMPARE(element.value("token").toString(), QString("tok"));
        QCOMPARE(element.value("key").toString(), QString("tok"));
        QVERIFY(element.value("token_ts").toInteger() >= before);
        QCOMPARE(section.value("tgif_api_key").toString(), QString("tok"));
        p.api_key_ref = "tgif:acc";
        QCOMPARE(tgifCredentials(p).token, QString("tok"));

        storeTgifToken("nobody", "zzz");
        QCOMPARE(Config::instance().section("dmr").value("tgif_api_key").toString(), QString("tok"));
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
        QCOMPARE(bm.at(0).label, QString("Germany"));
        QCOMPARE(bm.at(0).id, QString("2621"));
        QCOMPARE(bm.at(1).label, QString("Germany"));
        QCOMPARE(bm.at(1).id, QString("2622"));
        QCOMPARE(bm.at(2).label, QString("United Kingdom"));
        QCOMPARE(bm.at(2).address, QString("2341.example:62031"));
        QCOMPARE(table.value("TGIF").constFirst().label, QString("TGIF Network"));
        QCOMPARE(table.value("TGIF").constFirst().id, QString());
        const QList<MasterHost> hb = table.value("HBLink");
        QCOMPARE(hb.size(), 2);
        QCOMPARE(hb.at(0).id, QString("3")); // equal labels sort by numeric id
        QCOMPARE(hb.at(0).label, QString("US Two"));
        QCOMPARE(table.value("IPSC2 / DMR+").constFirst().label, QString("Canada"));
        QCOMPARE(table.value("FreeDMR").constFirst().label, QString("Belgium"));
        QCOMPARE(table.value("ADN Systems").constFirst().label, QString("Spain"));
        QCOMPARE(table.value("FreeStar / SystemX").constFirst().address, QString("us.example:62031"));
    }

    void shippedHostsFileHasEveryListedNetwork()
    {
        QFile file(QStringLiteral(ZL_SOURCE_DIR "/assets/DMR_Hosts.txt"));
        QVERIFY(file.open(QIODevice::ReadOnly));
        const auto table = parseMasterHosts(file.readAll());
        for (const char* group : {"Brandmeister", "TGIF", "HBLink", "IPSC2 / DMR+", "FreeDMR", "FreeStar / SystemX"})
            QVERIFY2(!table.value(group).isEmpty(), group);
        for (const QList<MasterHost>& hosts : table) {
            for (const MasterHost& host : hosts)
                QVERIFY(host.address.contains(':'));
        }
    }

    void builtInGroups()
    {
        QCOMPARE(masterHosts("AmCom").size(), 1);
        QCOMPARE(masterHosts("AmCom").constFirst().id, QString("3101"));
        QCOMPARE(masterHosts("AmCom").constFirst().label, QString("AmCom 3101"));
        QCOMPARE(masterHosts("Phoenix-UK").constFirst().label, QString("Phoenix-UK Fusion"));
        QCOMPARE(masterHosts("HamUnited").constFirst().label, QString("HamUnited primary"));
        QVERIFY(masterHosts("amcom").isEmpty());
        QVERIFY(masterHosts("No such network").isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestPeer)
#include "tst_peer.moc"
