#include "app/Config.h"

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

using zl::Config;

class TestConfig : public QObject {
    Q_OBJECT

private:
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

    void unknownKeysSurviveLoadAndSave()
    {
        const QString path = writeFile(QStringLiteral("unknown.json"),
                                       R"({"future_mode": {"x": [1, 2, {"y": null}]}, "top_number": 7,
                                           "general": {"callsign": "XX0ABC", "later_key": "kept"}})");
        {
            Config config(path);
            config.setCallsign(QStringLiteral("XX9ZZZ"));
            config.save();
        }
        const QJsonObject saved = QJsonDocument::fromJson(readFile(path)).object();
        QCOMPARE(saved.value("top_number").toInt(), 7);
        QCOMPARE(saved.value("future_mode").toObject().value("x").toArray().size(), 3);
        QCOMPARE(saved.value("general").toObject().value("later_key").toString(), QStringLiteral("kept"));
        QCOMPARE(saved.value("general").toObject().value("callsign").toString(), QStringLiteral("XX9ZZZ"));
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

        const QJsonObject main =
            QJsonDocument::fromJson(readFile(path)).object().value("windows").toObject().value("main").toObject();
        QCOMPARE(main.value("geometry").toString(), QString::fromLatin1(geometry.toBase64()));
        QCOMPARE(main.value("state").toString(), QStringLiteral("c3RhdGU="));

        Config reloaded(path);
        QCOMPARE(reloaded.windowGeometry(QStringLiteral("main")), geometry);
        QCOMPARE(reloaded.windowState(QStringLiteral("main")), QByteArray("state"));
        QCOMPARE(reloaded.windowGeometry(QStringLiteral("settings")), QByteArray());
    }

    void nonObjectSectionReadsEmptyAndIsReplaced()
    {
        const QString path = writeFile(QStringLiteral("string-section.json"), R"({"x": "text", "y": [1]})");
        Config config(path);
        QVERIFY(config.section(QStringLiteral("x")).isEmpty());
        QVERIFY(config.section(QStringLiteral("y")).isEmpty());
        config.setSection(QStringLiteral("x"), QJsonObject{{"k", 1}});
        config.save();
        const QJsonObject saved = QJsonDocument::fromJson(readFile(path)).object();
        QCOMPARE(saved.value("x").toObject().value("k").toInt(), 1);
        QVERIFY(saved.value("y").isArray());
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
};

QTEST_GUILESS_MAIN(TestConfig)
#include "tst_config.moc"
