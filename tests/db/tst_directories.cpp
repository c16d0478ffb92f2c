// The public directories against a loopback web server: the published layouts, and what a
// download that fails, stalls, is a web page or is cut short leaves behind (the old data).
#include "ListHttpServer.h"
#include "TempConfigHome.h"
#include "app/Config.h"
#include "db/DirectoryCache.h"
#include "db/HostListSync.h"
#include "db/RepeaterDb.h"
#include "db/ServerRegistry.h"
#include "db/TgListSync.h"
#include "db/UserDb.h"

#include <QDateTime>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSignalSpy>
#include <QTest>

#include <functional>
#include <memory>

using namespace zl;
using Answer = ListHttpServer::Answer;

namespace {

QByteArray readAll(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void writeAll(const QString& path, const QByteArray& data)
{
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(data);
}

QByteArray json(const QJsonValue& value)
{
    return value.isArray() ? QJsonDocument(value.toArray()).toJson(QJsonDocument::Compact)
                           : QJsonDocument(value.toObject()).toJson(QJsonDocument::Compact);
}

// The list of `n` entries that the server of each directory publishes, in its layout.
QByteArray published(const QString& name, int n)
{
    static const QHash<QString, std::pair<QString, QString>> shapes = {
        {"hosts", {"# M17_Hosts.txt\n", "M17-%1\t10.0.0.1\t17000\n"}},
        {"users", {"RADIO_ID,CALLSIGN,FIRST_NAME,LAST_NAME,CITY\n", "%1,dl%1abc,Name,Last,City\n"}},
        {"repeaters", {"", "{\"id\":%1,\"callsign\":\"db0abc\"},"}},
        {"talkgroups", {"", "%1;0;TG %1;\n"}}};
    QString out = shapes[name].first;
    for (int i = 0; i < n; ++i)
        out += shapes[name].second.arg(2620000 + i);
    if (name == "repeaters")
        out = "{\"rptrs\":[" + out.left(out.size() - (n > 0)) + "]}";
    return out.toUtf8();
}

// One directory as the tests drive it: where its data and its date are kept, what it fetches,
// how to start it, and its signals of success and failure.
struct Directory {
    QString dataPath;
    QString stampPath;
    QString urlPath;
    QString key; // which of the lists fetched together is this one (first signal argument)
    std::function<void(int hours)> refresh;
    std::shared_ptr<QSignalSpy> done;
    std::shared_ptr<QSignalSpy> failed;
};

Directory dir(const QString& data, const QString& stamp, const QString& url, const QString& key,
              const std::function<void(int)>& refresh, std::shared_ptr<QSignalSpy> done,
              std::shared_ptr<QSignalSpy> failed)
{
    return {data, stamp, url, key, refresh, std::move(done), std::move(failed)};
}

template <typename Object, typename Signal>
std::shared_ptr<QSignalSpy> spy(Object* object, Signal signal)
{
    return std::make_shared<QSignalSpy>(object, signal);
}

// This list's own result among those of the lists fetched with it; empty after ten seconds.
QList<QVariant> resultOf(const Directory& d, const QSignalSpy& signal)
{
    QList<QVariant> found;
    QTest::qWaitFor(
        [&] {
            for (const QList<QVariant>& args : signal) {
                if (d.key.isEmpty() ? !args.last().toString().startsWith("NXDN: ") : args.first() == d.key)
                    found = args;
            }
            return !found.isEmpty();
        },
        10000);
    return found;
}

} // namespace

class TestDirectories : public QObject {
    Q_OBJECT

private:
    TempConfigHome home;
    ListHttpServer server;
    HostListSync hosts;
    UserDb users;
    RepeaterDb repeaterDb;
    TgListSync talkgroups;

    Directory directory(const QString& name)
    {
        if (name == "hosts")
            return dir(
                ServerRegistry::cachePath("M17"), directoryCachePath("last_sync.json"), "/downloads/M17_Hosts.txt",
                "M17", [this](int h) { hosts.syncIfOlder(h); }, spy(&hosts, &HostListSync::modeUpdated),
                spy(&hosts, &HostListSync::modeFailed));
        if (name == "users")
            return dir(
                UserDb::dmrPath(), UserDb::dmrPath() + ".stamp", "/static/user.csv", "",
                [this](int h) { users.refreshIfOlder(h); }, spy(&users, &UserDb::refreshed),
                spy(&users, &UserDb::failed));
        if (name == "repeaters")
            return dir(
                RepeaterDb::pathFor("DMR"), RepeaterDb::pathFor("DMR") + ".stamp", "/static/rptrs.json", "DMR",
                [this](int h) { repeaterDb.refreshIfOlder(h); }, spy(&repeaterDb, &RepeaterDb::refreshed),
                spy(&repeaterDb, &RepeaterDb::failed));
        const QString path = TgListSync::fileForNetwork("BM");
        return dir(
            path, path + ".stamp", "/downloads/TGList_BM.txt", "BM", [this](int h) { talkgroups.syncIfOlder(h); },
            spy(&talkgroups, &TgListSync::networkUpdated), spy(&talkgroups, &TgListSync::networkFailed));
    }

private slots:
    void initTestCase()
    {
        const QString url = server.baseUrl();
        Config::instance().setSection(
            "directories",
            QJsonObject{{"host_lists_url", url}, {"users_url", url}, {"repeaters_url", url}, {"tgif_url", url}});
        hosts.setTransferTimeout(1500);
        users.setTransferTimeout(1500);
        repeaterDb.setTransferTimeout(1500);
        talkgroups.setTransferTimeout(1500);
    }

    void publishedLayouts_data()
    {
        QTest::addColumn<QString>("mode");
        QTest::addColumn<QByteArray>("line");
        QTest::addColumn<QString>("expected"); // id|name|host|port[|password]
        // Lines as they stand in the published lists.
        QTest::newRow("M17") << "M17" << QByteArray("M17-724\t191.30.24.9\t17724")
                             << "m17-M17-724|M17-724|191.30.24.9|17724";
        QTest::newRow("YSF") << "YSF" << QByteArray("00007;EUROPELINK;Europelink;161.97.73.43;42000;248")
                             << "ysf-00007|EUROPELINK — Europelink|161.97.73.43|42000";
        QTest::newRow("YSF, no description")
            << "YSF" << QByteArray("12345;ROOM;;10.1.2.3;42001;000") << "ysf-12345|ROOM — |10.1.2.3|42001";
        QTest::newRow("YSF comment") << "YSF" << QByteArray("# sourced from https://register.ysfreflector.de;;;;;")
                                     << "";
        QTest::newRow("DMR") << "DMR"
                             << QByteArray("BM_2621_Germany\t\t2621\t2621.master.brandmeister.network\tpassw0rd\t62031")
                             << "dmr-BM_2621_Germany|BM_2621_Germany|2621.master.brandmeister.network|62031|passw0rd";
        QTest::newRow("DMR, no password") << "DMR" << QByteArray("TGIF_Network 0 tgif.network None 62031")
                                          << "dmr-TGIF_Network|TGIF_Network|tgif.network|62031";
        QTest::newRow("DCS") << "D-STAR" << QByteArray("DCS005\t87.117.229.51\tL")
                             << "d-star-DCS005|DCS005|87.117.229.51|30001";
        QTest::newRow("APRS")
            << "APRS" << QByteArray("rotate.aprs2.net:14580;Universal connection for Global Loadbalance\r")
            << "aprs-1|rotate.aprs2.net — Universal connection for Global Loadbalance|rotate.aprs2.net|14580";
        QTest::newRow("APRS, ':' for ';'")
            << "APRS" << QByteArray("aprs.hc.r1.ampr.org:14580:Universal Connection ") << "";
        QTest::newRow("P25, too few fields") << "P25" << QByteArray("10100\tm1geo.com") << "";
    }

    void publishedLayouts()
    {
        QFETCH(QString, mode);
        QFETCH(QByteArray, line);
        QFETCH(QString, expected);
        QStringList got;
        for (const QJsonValue& v : parseHostList(*hostSourceFor(mode), line))
            got << QStringList{v["id"].toString(), v["name"].toString(), v["host"].toString(),
                               QString::number(v["port"].toInt())}
                           .join('|') +
                       (v.toObject().contains("password") ? "|" + v["password"].toString() : "");
        QCOMPARE(got.join(' '), expected);
    }

    void userAndTalkgroupLines_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QString>("expected");
        QTest::newRow("csv: upper case, comma ends the name")
            << "csv" << QByteArray("RADIO_ID,CALLSIGN,FIRST_NAME\r\n2621234,dl1abc,Hans, Peter,Berlin\r\n")
            << "2621234 DL1ABC Hans";
        QTest::newRow("csv: header only") << "csv" << QByteArray("RADIO_ID,CALLSIGN,FIRST_NAME\n") << "";
        QTest::newRow("tsv: as it stands") << "tsv" << QByteArray("3100001\tk1abc\t Jo \n") << "3100001 k1abc Jo";
        QTest::newRow("bm: group, empty description") << "bm" << QByteArray("91;0;Worldwide;") << "91 TG Worldwide ";
        QTest::newRow("bm: other type kept")
            << "bm" << QByteArray("4000;3;Disconnect;Drop all") << "4000 3 Disconnect Drop all";
        QTest::newRow("bm: two fields") << "bm" << QByteArray("91;0") << "";
        QTest::newRow("tgif: Base64 description")
            << "tgif" << QByteArray(R"([{"id":"31665","name":" TGIF ","description":"VGhlIFByaW1l"}])")
            << "31665 TG TGIF The Prime";
        QTest::newRow("tgif: not Base64")
            << "tgif" << QByteArray(R"([{"id":"1","name":"A","description":"*?"}])") << "1 TG A ";
        QTest::newRow("repeater: identity id")
            << "rptrs" << QByteArray(R"({"rptrs":[{"id":0,"identity_id":7,"callsign":" db0x "}]})") << "7 DB0X";
    }

    void userAndTalkgroupLines()
    {
        QFETCH(QString, kind);
        QFETCH(QByteArray, text);
        QFETCH(QString, expected);
        QStringList got;
        if (kind == "csv" || kind == "tsv") {
            const UserTable t = kind == "csv" ? UserTable::fromCsv(text) : UserTable::fromTsv(text);
            for (int id : {2621234, 3100001}) {
                if (!t.callsignOf(id).isEmpty())
                    got << QString::number(id) << t.callsignOf(id) << t.nameOf(id);
            }
        } else if (kind == "rptrs") {
            const RepeaterDb::Table table = RepeaterDb::parse(text).value();
            for (const RepeaterEntry& e : table)
                got << QString::number(e.id) << e.callsign;
        } else {
            const QJsonArray list = kind == "bm" ? TgListSync::parseText(text) : *TgListSync::parseTgif(text);
            for (const QJsonValue& v : list)
                got << QString::number(v["id"].toInteger()) << v["type"].toString() << v["name"].toString()
                    << v["description"].toString();
        }
        QCOMPARE(got.join(' '), expected);
    }

    void failedDownloadKeepsTheOldData_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<int>("answer");
        QTest::addColumn<int>("entries");
        QTest::addColumn<QString>("reason");
        const QList<std::tuple<const char*, Answer, int, QString>> kinds = {
            {"not found", Answer::NotFound, 10, "Not Found"},
            {"stalled", Answer::Stall, 10, "timed out"},
            {"web page", Answer::HtmlPage, 10, "is a web page, not the list"},
            {"cut short", Answer::CutShort, 10, "Connection closed"},
            {"shrunk", Answer::Serve, 4, "looks truncated: 4 entries, had 10"},
            {"empty", Answer::Serve, 0, "has no entries"}};
        for (const char* name : {"hosts", "users", "repeaters", "talkgroups"}) {
            for (const auto& [what, answer, entries, reason] : kinds)
                QTest::addRow("%s: %s", name, what) << QString(name) << int(answer) << entries << reason;
        }
    }

    void failedDownloadKeepsTheOldData()
    {
        QFETCH(QString, name);
        QFETCH(int, answer);
        QFETCH(int, entries);
        QFETCH(QString, reason);
        Directory d = directory(name);
        // A good download of ten entries; a day later it is still fresh and not fetched again.
        server.setBody(d.urlPath, published(name, 10));
        server.setAnswer(d.urlPath, Answer::Serve);
        d.refresh(0);
        QVERIFY(!resultOf(d, *d.done).isEmpty());
        const int fetched = server.requestCount(d.urlPath);
        d.refresh(24);
        // Eight days on, it is fetched again.
        const QString old = QDateTime::currentDateTime().addDays(-8).toString(Qt::ISODate);
        writeAll(d.stampPath, name == "hosts" ? json(QJsonObject{{"M17", old}}) : old.toUtf8());
        const QByteArray oldData = readAll(d.dataPath);
        const QByteArray oldStamp = readAll(d.stampPath);
        d.done->clear();

        server.setBody(d.urlPath, published(name, entries));
        server.setAnswer(d.urlPath, Answer(answer));
        d.refresh(24);
        const QList<QVariant> failure = resultOf(d, *d.failed);
        const QString got = failure.isEmpty() ? QString("(no failure)") : failure.last().toString();
        QVERIFY2(got.contains(reason), qPrintable(got));
        QCOMPARE(server.requestCount(d.urlPath), fetched + 1);
        QCOMPARE(readAll(d.dataPath), oldData);
        QCOMPARE(readAll(d.stampPath), oldStamp);
        if (name == "users")
            QCOMPARE(users.callsignOf(2620003), QString("DL2620003ABC"));
        if (name == "repeaters")
            QCOMPARE(repeaterDb.count("DMR"), 10);

        // Asked for by the user, a smaller list that is well formed is taken.
        if (entries > 0 && Answer(answer) == Answer::Serve) {
            d.refresh(0);
            QVERIFY(!resultOf(d, *d.done).isEmpty());
            QVERIFY(readAll(d.dataPath) != oldData);
        }
    }

    void shippedListUntilTheFirstDownload()
    {
        QFile::remove(ServerRegistry::cachePath("M17"));
        const QList<ServerEntry> shipped = ServerRegistry("M17").official();
        QCOMPARE(shipped.size(), 147);
        QCOMPARE(shipped.first().id, QString("m17-M17-000"));
        QCOMPARE(shipped.first().host, QString("81.231.241.25"));
        writeAll(ServerRegistry::cachePath("M17"), json(parseHostList(*hostSourceFor("M17"), published("hosts", 3))));
        QCOMPARE(ServerRegistry("M17").official().size(), 3);
    }
};

QTEST_GUILESS_MAIN(TestDirectories)
#include "tst_directories.moc"
