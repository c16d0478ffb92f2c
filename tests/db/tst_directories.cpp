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

QString daysAgo(int days)
{
    return QDateTime::currentDateTime().addDays(-days).toString(Qt::ISODate);
}

// A list of `n` entries in each published layout, and in the form each cache file keeps.
QByteArray m17Hosts(int n)
{
    QByteArray out = "# M17_Hosts.txt\n";
    for (int i = 0; i < n; ++i)
        out += "M17-" + QByteArray::number(100 + i) + "\t10.0.0." + QByteArray::number(i) + "\t17000\n";
    return out;
}

QByteArray userCsv(int n)
{
    QByteArray out = "RADIO_ID,CALLSIGN,FIRST_NAME,LAST_NAME,CITY,STATE,COUNTRY\n";
    for (int i = 0; i < n; ++i)
        out += QByteArray::number(2620000 + i) + ",dl" + QByteArray::number(i) + "abc,Name" + QByteArray::number(i) +
               ",Last,City,State,Germany\n";
    return out;
}

QByteArray repeaters(int n)
{
    QJsonArray list;
    for (int i = 0; i < n; ++i)
        list.append(QJsonObject{{"id", 262000 + i}, {"callsign", "db0abc"}, {"city", "Berlin"}});
    return json(QJsonObject{{"rptrs", list}});
}

QByteArray bmTalkgroups(int n)
{
    QByteArray out;
    for (int i = 0; i < n; ++i)
        out += QByteArray::number(2620 + i) + ";0;TG " + QByteArray::number(i) + ";\n";
    return out;
}

// One directory as the failure tests drive it: where its data and date are kept, what it
// fetches, and how to start it and see its result.
struct Directory {
    QString dataPath;
    QString stampPath;
    QString urlPath;
    std::function<QByteArray(int)> published;
    std::function<void(int hours)> refresh;
    std::unique_ptr<QSignalSpy> done;   // success, first argument the list's key
    std::unique_ptr<QSignalSpy> failed; // failure, last argument the reason
    QString key;                        // which of the object's lists this is
};

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
        Directory d;
        if (name == "hosts") {
            d = {ServerRegistry::cachePath("M17"),
                 directoryCachePath("last_sync.json"),
                 "/downloads/M17_Hosts.txt",
                 m17Hosts,
                 [this](int h) { hosts.syncIfOlder(h); },
                 nullptr,
                 nullptr,
                 "M17"};
            d.done = std::make_unique<QSignalSpy>(&hosts, &HostListSync::modeUpdated);
            d.failed = std::make_unique<QSignalSpy>(&hosts, &HostListSync::modeFailed);
        } else if (name == "users") {
            d = {UserDb::dmrPath(),
                 UserDb::dmrPath() + ".stamp",
                 "/static/user.csv",
                 userCsv,
                 [this](int h) { users.refreshIfOlder(h); },
                 nullptr,
                 nullptr,
                 QString()};
            d.done = std::make_unique<QSignalSpy>(&users, &UserDb::refreshed);
            d.failed = std::make_unique<QSignalSpy>(&users, &UserDb::failed);
        } else if (name == "repeaters") {
            d = {RepeaterDb::pathFor("DMR"),
                 RepeaterDb::pathFor("DMR") + ".stamp",
                 "/static/rptrs.json",
                 repeaters,
                 [this](int h) { repeaterDb.refreshIfOlder(h); },
                 nullptr,
                 nullptr,
                 "DMR"};
            d.done = std::make_unique<QSignalSpy>(&repeaterDb, &RepeaterDb::refreshed);
            d.failed = std::make_unique<QSignalSpy>(&repeaterDb, &RepeaterDb::failed);
        } else {
            d = {TgListSync::fileForNetwork("BM"),
                 TgListSync::fileForNetwork("BM") + ".stamp",
                 "/downloads/TGList_BM.txt",
                 bmTalkgroups,
                 [this](int h) { talkgroups.syncIfOlder(h); },
                 nullptr,
                 nullptr,
                 "BM"};
            d.done = std::make_unique<QSignalSpy>(&talkgroups, &TgListSync::networkUpdated);
            d.failed = std::make_unique<QSignalSpy>(&talkgroups, &TgListSync::networkFailed);
        }
        return d;
    }

    // Waits for this list's own result among those of the other lists fetched with it.
    static QString reasonFor(const Directory& d)
    {
        QString reason;
        const auto mine = [&d](const QList<QVariant>& args) {
            return d.key.isEmpty() ? !args.last().toString().startsWith("NXDN: ") : args.first().toString() == d.key;
        };
        const auto find = [&] {
            for (const QList<QVariant>& args : *d.failed) {
                if (mine(args))
                    reason = args.last().toString();
            }
            return !reason.isEmpty();
        };
        if (!QTest::qWaitFor(find, 10000))
            return QStringLiteral("(no failure reported)");
        return reason;
    }

    static bool succeeded(const Directory& d)
    {
        return QTest::qWaitFor(
            [&d] {
                for (const QList<QVariant>& args : *d.done) {
                    if (d.key.isEmpty() || args.first().toString() == d.key)
                        return true;
                }
                return false;
            },
            10000);
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
        QTest::addColumn<QByteArray>("expected");
        // Lines as they stand in the published lists.
        QTest::newRow("M17") << "M17" << QByteArray("M17-724\t191.30.24.9\t17724")
                             << QByteArray(
                                    R"([{"host":"191.30.24.9","id":"m17-M17-724","name":"M17-724","port":17724}])");
        QTest::newRow("YSF")
            << "YSF" << QByteArray("00007;EUROPELINK;Europelink;161.97.73.43;42000;248")
            << QByteArray(
                   R"([{"host":"161.97.73.43","id":"ysf-00007","name":"EUROPELINK — Europelink","port":42000}])");
        QTest::newRow("YSF, no description")
            << "YSF" << QByteArray("12345;ROOM;;10.1.2.3;42001;000")
            << QByteArray(R"([{"host":"10.1.2.3","id":"ysf-12345","name":"ROOM — ","port":42001}])");
        QTest::newRow("YSF comment") << "YSF" << QByteArray("# sourced from https://register.ysfreflector.de;;;;;")
                                     << QByteArray("[]");
        QTest::newRow("DMR")
            << "DMR" << QByteArray("BM_2621_Germany\t\t\t2621\t2621.master.brandmeister.network\tpassw0rd\t62031")
            << QByteArray(
                   R"([{"host":"2621.master.brandmeister.network","id":"dmr-BM_2621_Germany","name":"BM_2621_Germany","password":"passw0rd","port":62031}])");
        QTest::newRow("DMR, no password")
            << "DMR" << QByteArray("TGIF_Network 0 tgif.network None 62031")
            << QByteArray(R"([{"host":"tgif.network","id":"dmr-TGIF_Network","name":"TGIF_Network","port":62031}])");
        QTest::newRow("DCS") << "D-STAR" << QByteArray("DCS005\t87.117.229.51\tL")
                             << QByteArray(
                                    R"([{"host":"87.117.229.51","id":"d-star-DCS005","name":"DCS005","port":30001}])");
        QTest::newRow("APRS")
            << "APRS" << QByteArray("rotate.aprs2.net:14580;Universal connection for Global Loadbalance\r")
            << QByteArray(
                   R"([{"host":"rotate.aprs2.net","id":"aprs-1","name":"rotate.aprs2.net — Universal connection for Global Loadbalance","port":14580}])");
        QTest::newRow("APRS, ':' for ';'")
            << "APRS" << QByteArray("aprs.hc.r1.ampr.org:14580:Universal Connection ") << QByteArray("[]");
        QTest::newRow("P25, too few fields") << "P25" << QByteArray("10100\tm1geo.com") << QByteArray("[]");
    }

    void publishedLayouts()
    {
        QFETCH(QString, mode);
        QFETCH(QByteArray, line);
        QFETCH(QByteArray, expected);
        QCOMPARE(json(parseHostList(*hostSourceFor(mode), line)), expected);
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
        // What a good download of ten entries, eight days ago, left behind.
        server.setBody(d.urlPath, d.published(10));
        server.setAnswer(d.urlPath, Answer::Serve);
        d.refresh(0);
        QVERIFY(succeeded(d));
        writeAll(d.stampPath, name == "hosts" ? json(QJsonObject{{"M17", daysAgo(8)}}) : daysAgo(8).toUtf8());
        const QByteArray oldData = readAll(d.dataPath);
        const QByteArray oldStamp = readAll(d.stampPath);
        d.done->clear();

        server.setBody(d.urlPath, d.published(entries));
        server.setAnswer(d.urlPath, Answer(answer));
        d.refresh(24);
        QVERIFY2(reasonFor(d).contains(reason), qPrintable(reasonFor(d)));
        QCOMPARE(readAll(d.dataPath), oldData);
        QCOMPARE(readAll(d.stampPath), oldStamp);
        if (name == "users")
            QCOMPARE(users.callsignOf(2620003), QString("DL3ABC"));
        if (name == "repeaters")
            QCOMPARE(repeaterDb.count("DMR"), 10);

        // Asked for by the user, a smaller list that is well formed is taken.
        if (entries > 0 && Answer(answer) == Answer::Serve) {
            d.refresh(0);
            QVERIFY(succeeded(d));
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
        writeAll(ServerRegistry::cachePath("M17"), json(parseHostList(*hostSourceFor("M17"), m17Hosts(3))));
        QCOMPARE(ServerRegistry("M17").official().size(), 3);
    }

    void freshListsAreNotFetchedAgain_data()
    {
        QTest::addColumn<QString>("name");
        for (const char* name : {"hosts", "users", "repeaters", "talkgroups"})
            QTest::newRow(name) << name;
    }

    void freshListsAreNotFetchedAgain()
    {
        QFETCH(QString, name);
        Directory d = directory(name);
        server.setBody(d.urlPath, d.published(10));
        server.setAnswer(d.urlPath, Answer::Serve);
        d.refresh(0);
        QVERIFY(succeeded(d));
        const int fetched = server.requestCount(d.urlPath);
        d.refresh(24);
        d.done->clear();
        d.refresh(0);
        QVERIFY(succeeded(d));
        // Only the forced refresh went out; the one for lists older than a day found it fresh.
        QCOMPARE(server.requestCount(d.urlPath), fetched + 1);
    }
};

QTEST_GUILESS_MAIN(TestDirectories)
#include "tst_directories.moc"
