#include "TempConfigHome.h"
#include "app/Config.h"
#include "db/ServerRegistry.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSignalSpy>
#include <QTest>

using namespace zl;

namespace {

void writeFile(const QString& path, const QByteArray& content)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(content);
}

QByteArray serverList(const QStringList& names)
{
    QJsonArray array;
    for (const QString& name : names)
        array.append(QJsonObject{{"id", "m17-" + name},
                                 {"name", name},
                                 {"host", name.toLower() + ".example.net"},
                                 {"port", 17000},
                                 {"password", ""}});
    return QJsonDocument(array).toJson();
}

QStringList ids(const QList<ServerEntry>& list)
{
    QStringList out;
    for (const ServerEntry& e : list)
        out << e.id;
    return out;
}

ServerEntry userServer(const QString& name, const QString& host, int port)
{
    ServerEntry e;
    e.name = name;
    e.host = host;
    e.port = port;
    return e;
}

} // namespace

class TestServerRegistry : public QObject {
    Q_OBJECT

private:
    TempConfigHome home;

private slots:
    void init()
    {
        QFile::remove(ServerRegistry::cachePath("M17"));
        QFile::remove(ServerRegistry::sharePath("M17"));
        Config::instance().setSection("m17", {});
    }

    void cleanupTestCase()
    {
        // The shipped list lives beside the test binary's share folder; leave none behind.
        QFile::remove(ServerRegistry::sharePath("M17"));
    }

    void officialListFromCacheOrShare()
    {
        QVERIFY(ServerRegistry::cachePath("D-STAR").endsWith("/d-star_servers.json"));
        QVERIFY(ServerRegistry::sharePath("M17").endsWith("/../share/zephyrlake/servers/m17_servers.json"));
        writeFile(ServerRegistry::sharePath("M17"), serverList({"SHARED"}));
        QCOMPARE(ids(ServerRegistry("M17").official()), QStringList{"m17-SHARED"});

        // The cache copy wins whatever the age of either file.
        writeFile(ServerRegistry::cachePath("M17"), serverList({"CACHED1", "CACHED2"}));
        QFile share(ServerRegistry::sharePath("M17"));
        QVERIFY(share.open(QIODevice::ReadWrite));
        QVERIFY(share.setFileTime(QDateTime::currentDateTime().addDays(1), QFileDevice::FileModificationTime));
        share.close();
        const ServerRegistry registry("M17");
        QCOMPARE(ids(registry.official()), (QStringList{"m17-CACHED1", "m17-CACHED2"}));
        const ServerEntry first = registry.official().first();
        QCOMPARE(first.name + " " + first.host + ":" + QString::number(first.port),
                 QString("CACHED1 cached1.example.net:17000"));
        QVERIFY(first.official && !first.selected);
    }

    // A cache file that is not a list hides the shared one; odd entries get defaults.
    void cacheFileAsItComes_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QStringList>("names");
        QTest::newRow("object") << QByteArray(R"({"id": "m17-A", "name": "A"})") << QStringList();
        QTest::newRow("garbage") << QByteArray("[{\"id\": ") << QStringList();
        QTest::newRow("empty") << QByteArray() << QStringList();
        QTest::newRow("missing keys") << QByteArray(R"([{"name": "Bare"}, 5])") << QStringList{"Bare", ""};
    }

    void cacheFileAsItComes()
    {
        QFETCH(QByteArray, content);
        QFETCH(QStringList, names);
        writeFile(ServerRegistry::sharePath("M17"), serverList({"SHARED"}));
        writeFile(ServerRegistry::cachePath("M17"), content);
        QStringList got;
        const ServerRegistry registry("M17");
        for (const ServerEntry& e : registry.official()) {
            got << e.name;
            QVERIFY(e.id.isEmpty() && e.port == 0);
        }
        QCOMPARE(got, names);
    }

    void selectionIsOfficialThenUserInListOrder()
    {
        writeFile(ServerRegistry::cachePath("M17"), serverList({"A", "B", "C"}));
        {
            ServerRegistry registry("M17");
            const QString u1 = registry.addUserServer(userServer("Mine", "10.0.0.1", 17000));
            const QString u2 = registry.addUserServer(userServer("Other", "10.0.0.2", 17001));
            QVERIFY(u1.startsWith("user-") && u2.startsWith("user-") && u1 != u2 && !u1.contains('{'));
            QSignalSpy changed(&registry, &ServerRegistry::changed);
            QSignalSpy configChanged(&Config::instance(), &Config::configChanged);
            // Ticked in an order that differs from the lists'.
            registry.setSelected(u2, true);
            registry.setSelected("m17-C", true);
            registry.setSelected(u1, true);
            registry.setSelected("m17-A", true);
            QCOMPARE(changed.size(), 4);
            QCOMPARE(configChanged.size(), 4);
            QCOMPARE(ids(registry.selected()), (QStringList{"m17-A", "m17-C", u1, u2}));
        }
        // A fresh object reads the same from the configuration, and the file holds it too.
        const ServerRegistry again("M17");
        QCOMPARE(ids(again.selected()).mid(0, 2), (QStringList{"m17-A", "m17-C"}));
        QVERIFY(!again.selected().at(2).official);
        Config fromDisk(home.configFile());
        QCOMPARE(fromDisk.section("m17").value("selected_server_ids").toArray().size(), 4);
        const QJsonObject user = fromDisk.section("m17").value("user_servers").toArray().at(0).toObject();
        QCOMPARE(user.keys(), (QStringList{"host", "id", "name", "password", "port"}));
    }

    void unknownAndDroppedIdsAreIgnoredThenForgotten()
    {
        writeFile(ServerRegistry::cachePath("M17"), serverList({"A", "B"}));
        Config::instance().setSection("m17",
                                      QJsonObject{{"selected_server_ids", QJsonArray{"m17-GONE", "m17-B", "nothing"}}});
        ServerRegistry registry("M17");
        QCOMPARE(ids(registry.selected()), QStringList{"m17-B"});
        registry.setSelected("m17-A", true);
        QCOMPARE(Config::instance().section("m17").value("selected_server_ids").toArray(),
                 (QJsonArray{"m17-A", "m17-B"}));
    }

    // A known host and port merge into their entry; an update keeps id and selection; removing keeps the order.
    void userServersMergeUpdateAndRemove()
    {
        ServerRegistry registry("M17");
        const QString a = registry.addUserServer(userServer("A", "ref.example.org", 17000));
        ServerEntry again = userServer("Renamed", "ref.example.org", 17000);
        again.password = "pw";
        again.selected = true;
        QCOMPARE(registry.addUserServer(again), a);
        const ServerEntry merged = registry.user().first();
        QVERIFY(registry.user().size() == 1 && merged.name == "Renamed" && merged.password == "pw" && merged.selected);
        const QString b = registry.addUserServer(userServer("B", "ref.example.org", 17001));
        const QString c = registry.addUserServer(userServer("C", "c", 3));
        QVERIFY(b != a);
        registry.setSelected(b, true);
        ServerEntry changed = userServer("B2", "b2", 22);
        changed.id = "user-other";
        registry.updateUserServer(b, changed);
        const ServerEntry updated = ServerRegistry("M17").user().at(1);
        QVERIFY(updated.id == b && updated.name == "B2" && updated.port == 22 && updated.selected);

        QSignalSpy spy(&registry, &ServerRegistry::changed);
        registry.updateUserServer("user-none", changed);
        registry.removeUserServer("user-none");
        QCOMPARE(spy.size(), 2);
        registry.removeUserServer(a);
        QCOMPARE(ids(registry.user()), (QStringList{b, c}));
    }
};

QTEST_MAIN(TestServerRegistry)
#include "tst_serverregistry.moc"
