// The configuration file, the identities kept in it, and the log and style rules of the program.
#include "TempConfigHome.h"
#include "app/Config.h"
#include "app/Identity.h"
#include "app/Log.h"
#include "ui/StyleSheet.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <sys/resource.h>
#include <sys/stat.h>

using namespace zl;

namespace {

Identity make(const QString& label, const QString& callsign, bool autoConnect = false)
{
    Identity i;
    i.label = label;
    i.callsign = callsign;
    i.auto_connect = autoConnect;
    return i;
}

QJsonObject json(const char* text)
{
    return QJsonDocument::fromJson(text).object();
}

} // namespace

class TestConfig : public QObject {
    Q_OBJECT

private:
    TempConfigHome home;
    QTemporaryDir dir;

    QString writeFile(const QString& name, const QByteArray& content)
    {
        const QString path = dir.filePath(name);
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
            return {};
        file.write(content);
        return path;
    }

    static QByteArray readFile(const QString& path)
    {
        QFile file(path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

private slots:
    void damagedFilesAreKeptAsideAndGiveDefaults_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<bool>("create");
        QTest::newRow("missing") << QByteArray() << false;
        QTest::newRow("empty") << QByteArray() << true;
        QTest::newRow("array") << QByteArray("[]") << true;
        QTest::newRow("truncated") << QByteArray("{\"general\": {\"callsign\": \"XX0ABC\"") << true;
        QTest::newRow("string") << QByteArray("\"general\"") << true;
    }

    void damagedFilesAreKeptAsideAndGiveDefaults()
    {
        QFETCH(QByteArray, content);
        QFETCH(bool, create);
        const QString name = QStringLiteral("%1.json").arg(QTest::currentDataTag());
        const QString path = create ? writeFile(name, content) : dir.filePath(name);
        Config config(path);
        QCOMPARE(config.defaultMode(), QStringLiteral("DMR"));
        QCOMPARE(config.callsign(), QString());
        QVERIFY(config.section(QStringLiteral("general")).isEmpty());
        QVERIFY(config.canSave());
        const QStringList copies = QDir(dir.path()).entryList({name + ".broken-*"}, QDir::Files);
        QCOMPARE(copies.size(), create ? 1 : 0);
        QCOMPARE(config.loadProblem().isEmpty(), !create);
        if (!create)
            return;
        // The user's bytes, exactly, and the message says where they are.
        QCOMPARE(readFile(dir.filePath(copies.first())), content);
        QVERIFY2(config.loadProblem().contains(dir.filePath(copies.first())), qPrintable(config.loadProblem()));
        config.setCallsign(QStringLiteral("XX0ABC"));
        config.save();
        QCOMPARE(Config(path).callsign(), QStringLiteral("XX0ABC"));
    }

    // Keys of later versions survive a save; a section that is not an object reads empty.
    void unknownKeysSurviveLoadAndSave()
    {
        const QString path = writeFile(QStringLiteral("unknown.json"),
                                       R"({"future_mode": {"x": [1, 2, {"y": null}]}, "top_number": 7, "s": "text",
                                           "general": {"callsign": "XX0ABC", "later_key": "kept"}, "a": [1]})");
        {
            Config config(path);
            QVERIFY(config.section(QStringLiteral("s")).isEmpty() && config.section(QStringLiteral("a")).isEmpty());
            config.setCallsign(QStringLiteral("XX9ZZZ"));
            config.setSection(QStringLiteral("s"), QJsonObject{{"k", 1}});
            config.save();
        }
        const QJsonObject saved = QJsonDocument::fromJson(readFile(path)).object();
        QCOMPARE(saved.value("top_number").toInt(), 7);
        QCOMPARE(saved.value("future_mode").toObject().value("x").toArray().size(), 3);
        QCOMPARE(saved.value("general").toObject(), (QJsonObject{{"callsign", "XX9ZZZ"}, {"later_key", "kept"}}));
        QCOMPARE(saved.value("s").toObject(), (QJsonObject{{"k", 1}}));
        QVERIFY(saved.value("a").isArray());
    }

    void settersSignalButDoNotSave()
    {
        const QByteArray original = R"({"general": {"callsign": "XX0ABC"}})";
        const QString path = writeFile(QStringLiteral("setters.json"), original);
        Config config(path);
        QSignalSpy changed(&config, &Config::configChanged);
        config.setCallsign(QStringLiteral("XX1AAA"));
        config.setDefaultMode(QStringLiteral("M17"));
        config.setSection(QStringLiteral("aprs"), QJsonObject{{"beacon", true}});
        QCOMPARE(changed.count(), 3);
        QCOMPARE(config.callsign(), QStringLiteral("XX1AAA"));
        QCOMPARE(config.defaultMode(), QStringLiteral("M17"));
        QCOMPARE(readFile(path), original);

        config.setSectionSilent(QStringLiteral("m17"), QJsonObject{{"module", "A"}});
        QCOMPARE(changed.count(), 3);
        QCOMPARE(readFile(path), original);
    }

    void windowGeometrySavesAtOnceAfterSignal()
    {
        const QString path = dir.filePath(QStringLiteral("windows/nested/config.json"));
        Config config(path);
        const QByteArray geometry("\x01\xd9\xd0\xcb\x00\x03\x00\x00\xff", 9);
        bool fileExistedAtSignal = true;
        connect(&config, &Config::configChanged, this, [&] { fileExistedAtSignal = QFile::exists(path); });

        config.setWindowGeometry(QStringLiteral("main"), geometry);
        QVERIFY(!fileExistedAtSignal);
        QVERIFY(QFile::exists(path));
        config.setWindowState(QStringLiteral("main"), QByteArray("state"));

        Config reloaded(path);
        QCOMPARE(reloaded.windowGeometry(QStringLiteral("main")), geometry);
        QCOMPARE(reloaded.windowState(QStringLiteral("main")), QByteArray("state"));
        QCOMPARE(reloaded.windowGeometry(QStringLiteral("settings")), QByteArray());
    }

    void savedFileIsPrivateToItsOwner()
    {
        // An old file that others could read becomes private at the next save, and so does its folder.
        QVERIFY(QDir().mkpath(dir.filePath("private")));
        const QString file = writeFile(QStringLiteral("private/config.json"), "{}");
        QFile::setPermissions(file, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ReadOther |
                                        QFileDevice::ReadGroup);
        Config config(file);
        config.save();
        struct stat st {};
        QCOMPARE(::stat(QFile::encodeName(file).constData(), &st), 0);
        QCOMPARE(st.st_mode & 0777, 0600u);
        QCOMPARE(::stat(QFile::encodeName(dir.filePath("private")).constData(), &st), 0);
        QCOMPARE(st.st_mode & 0777, 0700u);
    }

    void unreadableFileIsNeverOverwritten()
    {
        const QString path = dir.filePath(QStringLiteral("no-such-dir-file/config.json"));
        // A directory where the file should be cannot be read, and nothing may replace it.
        QDir().mkpath(path);
        Config config(path);
        QVERIFY(!config.canSave());
        QVERIFY(config.loadProblem().contains("cannot be read"));
        config.setCallsign(QStringLiteral("XX0ABC"));
        config.save();
        QCOMPARE(config.callsign(), QStringLiteral("XX0ABC"));
        QVERIFY(QFileInfo(path).isDir());
    }

    void failedWriteLeavesThePreviousFileWhole()
    {
        const QByteArray before = R"({"general": {"callsign": "XX0ABC"}})";
        const QString path = writeFile(QStringLiteral("full.json"), before);
        Config config(path);
        config.setSection(QStringLiteral("big"), QJsonObject{{"text", QString(4096, u'x')}});
        // A disk that fills up half-way through the write: the file size limit stops it at 64 bytes.
        const auto previousHandler = std::signal(SIGXFSZ, SIG_IGN);
        rlimit previous{};
        ::getrlimit(RLIMIT_FSIZE, &previous);
        rlimit small = previous;
        small.rlim_cur = 64;
        QCOMPARE(::setrlimit(RLIMIT_FSIZE, &small), 0);
        config.save();
        ::setrlimit(RLIMIT_FSIZE, &previous);
        std::signal(SIGXFSZ, previousHandler);
        QCOMPARE(readFile(path), before);
        QCOMPARE(QDir(dir.path()).entryList({"full.json*"}, QDir::Files | QDir::Hidden), QStringList{"full.json"});
    }

    // What is read from the file and what is written back: empty texts and false flags leave no key.
    void storedForm_data()
    {
        QTest::addColumn<QJsonObject>("stored");
        QTest::addColumn<QJsonObject>("written");
        QTest::newRow("empty") << QJsonObject() << json(R"({"label":"","callsign":""})");
        QTest::newRow("false flag") << json(R"({"label":"A","callsign":"XX0ABC","use_api_key":false})")
                                    << json(R"({"label":"A","callsign":"XX0ABC"})");
        QTest::newRow("wrong types") << json(R"({"label":5,"essid":1,"auto_connect":"yes"})")
                                     << json(R"({"label":"","callsign":""})");
        const QJsonObject full = json(R"({"label":"Home","callsign":"XX0ABC","id_field":"2400000","essid":"01",
            "extra":"x","network":"BM","server":"s","password":"pw","api_key":"key","use_api_key":true,
            "auto_connect":true})");
        QTest::newRow("every field") << full << full;
    }

    void storedForm()
    {
        QFETCH(QJsonObject, stored);
        QFETCH(QJsonObject, written);
        QCOMPARE(identityToJson(identityFromJson(stored)), written);
    }

    void setIdentitiesSignalsThenSaves()
    {
        Config& config = Config::instance();
        const QString file = config.path();
        QFile::remove(file);
        bool savedBeforeSignal = true;
        QSignalSpy changed(&config, &Config::configChanged);
        auto conn = connect(&config, &Config::configChanged, this, [&] { savedBeforeSignal = QFile::exists(file); });
        setIdentities("m17", {make("Portable", "XX0ABC")});
        disconnect(conn);
        QCOMPARE(changed.count(), 1);
        QVERIFY(!savedBeforeSignal);
        QCOMPARE(Config(file).section("identities").value("m17").toArray(),
                 (QJsonArray{QJsonObject{{"label", "Portable"}, {"callsign", "XX0ABC"}}}));
        QVERIFY(identities("M17").isEmpty()); // mode keys are case-sensitive
    }

    void resolveFallsBackInOrder()
    {
        const QString mode = QStringLiteral("dmr");
        QCOMPARE(resolveIdentity(mode).callsign, QString());
        setIdentities(mode, {make("First", "XX1AAA"), make("Auto1", "XX2BBB", true), make("Auto2", "XX3CCC", true)});
        QCOMPARE(autoConnectLabels(mode), (QStringList{"Auto1", "Auto2"}));
        QCOMPARE(resolveIdentity(mode).label, QStringLiteral("Auto1"));
        setActiveIdentity(mode, QStringLiteral("Auto2"));
        QCOMPARE(resolveIdentity(mode).callsign, QStringLiteral("XX3CCC"));

        // The selected identity was deleted: first auto-connect one, then the first of the list.
        setIdentities(mode, {make("First", "XX1AAA"), make("Auto1", "XX2BBB", true)});
        QCOMPARE(resolveIdentity(mode).label, QStringLiteral("Auto1"));
        setIdentities(mode, {make("First", "XX1AAA"), make("Other", "XX4DDD")});
        QCOMPARE(resolveIdentity(mode).label, QStringLiteral("First"));
        QCOMPARE(txIdentityLabel(mode), QStringLiteral("Auto2")); // the stale label is not cleared

        // Of equal labels the first wins; an empty TX label falls back to the active one.
        setIdentities(mode, {make("Same", "XX1AAA"), make("Same", "XX2BBB"), make("B", "XX5EEE")});
        setActiveIdentity(mode, QStringLiteral("Same"));
        QCOMPARE(resolveIdentity(mode).callsign, QStringLiteral("XX1AAA"));
        Config::instance().setSection(QStringLiteral("mode_state"),
                                      QJsonObject{{mode, QJsonObject{{"tx_identity", ""}, {"active_identity", "B"}}}});
        QCOMPARE(resolveIdentity(mode).callsign, QStringLiteral("XX5EEE"));
    }

    void displayText_data()
    {
        // label, callsign, id, essid, shown
        QTest::addColumn<QStringList>("in");
        QTest::newRow("full") << QStringList{"Home", "XX0ABC", "2400000", "01", "Home (XX0ABC, 2400000-01)"};
        QTest::newRow("label is callsign") << QStringList{"XX0ABC", "XX0ABC", "2400000", "", "XX0ABC (2400000)"};
        QTest::newRow("unnamed") << QStringList{"", "", "", "", "(unnamed)"};
        QTest::newRow("callsign only") << QStringList{"", "XX0ABC", "", "", "XX0ABC"};
        QTest::newRow("no label, id") << QStringList{"", "XX0ABC", "2400000", "07", "XX0ABC (2400000-07)"};
        QTest::newRow("label, other call") << QStringList{"Car", "XX0ABC", "", "", "Car (XX0ABC)"};
        QTest::newRow("essid without id") << QStringList{"Car", "Car", "", "01", "Car"};
    }

    void displayText()
    {
        QFETCH(QStringList, in);
        Identity i = make(in[0], in[1]);
        i.id_field = in[2];
        i.essid = in[3];
        QCOMPARE(identityDisplayText(i), in[4]);
    }

    void scaleFactorFollowsAvailableHeight_data()
    {
        QTest::addColumn<int>("height");
        QTest::addColumn<double>("factor");
        QTest::newRow("no screen") << 0 << 1.0;
        QTest::newRow("negative") << -5 << 1.0;
        QTest::newRow("tiny clamps to 0.7") << 480 << 0.7;
        QTest::newRow("768") << 768 << 0.768;
        QTest::newRow("1000") << 1000 << 1.0;
        QTest::newRow("1080 never enlarges") << 1080 << 1.0;
        QTest::newRow("2160") << 2160 << 1.0;
    }

    void scaleFactorFollowsAvailableHeight()
    {
        QFETCH(int, height);
        QFETCH(double, factor);
        QCOMPARE(zl::scaleForHeight(height), factor);
    }

    void pixelSizesAreRewritten_data()
    {
        QTest::addColumn<double>("factor");
        QTest::addColumn<QStringList>("inOut");
        QTest::newRow("768: 10px to 8px, 1px stays")
            << 0.768
            << QStringList{"QLabel { font-size: 10px; border: 1px solid #0ff; }",
                           "QLabel { font-size: 8px; border: 1px solid #0ff; }"};
        QTest::newRow("several on a line")
            << 0.7 << QStringList{"padding: 4px 10px;margin:-5px 0", "padding: 3px 7px;margin:-4px 0"};
        QTest::newRow("zero becomes one") << 0.9 << QStringList{"height: 0px;", "height: 1px;"};
        QTest::newRow("no unit untouched")
            << 0.7 << QStringList{"font-size: 13pt; width: 100", "font-size: 13pt; width: 100"};
        QTest::newRow("beyond int counts as 0") << 0.8 << QStringList{"99999999999px x", "1px x"};
        QTest::newRow("text between kept") << 0.5 << QStringList{"a10pxb20pxc", "a5pxb10pxc"};
        QTest::newRow("empty") << 0.5 << QStringList{"", ""};
    }

    void pixelSizesAreRewritten()
    {
        QFETCH(double, factor);
        QFETCH(QStringList, inOut);
        QCOMPARE(zl::scalePixelSizes(inOut[0], factor), inOut[1]);
    }

    void logFolderRules()
    {
        qputenv("XDG_STATE_HOME", "/state");
        const QString state = "/state/zephyrlake/log";
        // Started from a folder named "build": the log goes beside it; only an exact "build" counts.
        QCOMPARE(zl::logFolders({}, "/tree/build"), (QStringList{"/tree/log", state}));
        QCOMPARE(zl::logFolders({}, "/x/build-asan"), (QStringList{"/x/build-asan/log", state}));
        // Anywhere else below the program's folder; a configured folder comes first.
        QCOMPARE(zl::logFolders("/mine/logs", "/opt/bin"), (QStringList{"/mine/logs", "/opt/bin/log", state}));
        qunsetenv("XDG_STATE_HOME");
        QCOMPARE(zl::logFolders({}, "/opt/bin").last(), QDir::homePath() + "/.local/state/zephyrlake/log");
    }

    void oldLogsArePrunedToTheNewest()
    {
        QTemporaryDir tmp;
        for (int i = 0; i < 33; ++i)
            QFile(tmp.filePath(QStringLiteral("zl-2611%1-120000.log").arg(i + 10))).open(QIODevice::WriteOnly);
        QFile(tmp.filePath("notes.txt")).open(QIODevice::WriteOnly);
        zl::pruneLogs(tmp.path(), 30);
        const QStringList left = QDir(tmp.path()).entryList(QDir::Files, QDir::Name);
        QCOMPARE(left.size(), 31);
        QCOMPARE(left.first(), QString("notes.txt"));
        QCOMPARE(left.at(1), QString("zl-261113-120000.log"));
    }
};

QTEST_GUILESS_MAIN(TestConfig)
#include "tst_config.moc"
