// Starts the real program, as a normal user, in a private folder tree.
#include "HomebrewMaster.h"
#include "IaxServer.h"
#include "M17Reflector.h"
#include "NxdnReflector.h"
#include "ProgramSandbox.h"
#include "SvxReflector.h"
#include "YsfReflector.h"

#include <QFile>
#include <QJsonArray>
#include <QRegularExpression>
#include <QTest>

#include <algorithm>
#include <csignal>
#include <unistd.h>

namespace {

// Start-up under the sanitizers is slow on a loaded 2-core machine.
constexpr int kStartTimeoutMs = 60000;

QString readAll(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

constexpr quint8 kIaxAck = 4;
constexpr quint8 kIaxHangup = 5;

// Whether the IAX2 server got a control frame of this subclass.
bool hasIax(const IaxServer& server, quint8 subclass)
{
    return std::any_of(server.received.begin(), server.received.end(), [subclass](const IaxServer::Frame& f) {
        return f.full && f.type == 6 && f.subclass == subclass;
    });
}

// Line numbers of each needle in text, in the order given; -1 where missing.
QList<int> linesOf(const QString& text, const QStringList& needles)
{
    const QStringList lines = text.split(QLatin1Char('\n'));
    QList<int> at;
    for (const QString& needle : needles) {
        int found = -1;
        for (int i = 0; i < lines.size(); ++i) {
            if (lines.at(i).contains(needle)) {
                found = i;
                break;
            }
        }
        at.append(found);
    }
    return at;
}

// A mode section with one user server on loopback, selected and enabled.
// The one DMR peer of these tests, "Home" on the loopback master.
QJsonObject homePeer(quint16 masterPort)
{
    return QJsonObject{{"label", "Home"},
                       {"network", "Loop"},
                       {"server", QStringLiteral("127.0.0.1:%1").arg(masterPort)},
                       {"callsign_override", "XX0ABC"},
                       {"dmrid_override", "2400001"},
                       {"essid_override", "01"},
                       {"password", "pw"},
                       {"auto_connect", true}};
}

QJsonObject reflectorSection(quint16 port, const QJsonObject& row = {})
{
    QJsonObject enabled = row;
    enabled.insert("enabled", true);
    return QJsonObject{
        {"user_servers",
         QJsonArray{QJsonObject{{"id", "user-loop"}, {"name", "Loop"}, {"host", "127.0.0.1"}, {"port", port}}}},
        {"selected_server_ids", QJsonArray{"user-loop"}},
        {"servers", QJsonObject{{"user-loop", enabled}}}};
}

} // namespace

class TestStartup : public QObject {
    Q_OBJECT

private slots:
    void versionAnywhereCreatesNothing_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::newRow("-v third") << QStringList{"-style", "fusion", "-v"};
        QTest::newRow("--version first") << QStringList{"--version", "-platform", "none"};
    }

    void versionAnywhereCreatesNothing()
    {
        QFETCH(QStringList, args);
        ProgramSandbox box;
        QVERIFY(box.isValid());
        QProcess* p = box.start(args);
        QVERIFY(p->waitForFinished(kStartTimeoutMs));
        QCOMPARE(p->exitStatus(), QProcess::NormalExit);
        QCOMPARE(p->exitCode(), 0);
        QCOMPARE(p->readAllStandardOutput(), QByteArray("zephyrlake 617f06ff\n"));
        QCOMPARE(box.filesCreated(), QStringList());
        QVERIFY(!QFile::exists(box.binaryDir() + "/log"));
    }

    // From a folder named "build" the log goes beside it; SIGTERM shuts down in order and every link
    // says goodbye.
    void startLogsAndEveryLinkSaysGoodbyeOnSigterm()
    {
        HomebrewMaster master;
        M17Reflector m17;
        YsfReflector ysf;
        NxdnReflector nxdn(65000);
        SvxReflector svx;
        svx.setPassword("XX0ABC", "pw");
        IaxServer allstar;
        QVERIFY(master.listen());
        master.addPeer(240000101, "pw");
        ProgramSandbox box(QStringLiteral("build"));
        QVERIFY(box.isValid());
        const QJsonObject peer = homePeer(master.port());
        const QJsonArray me{QJsonObject{{"label", "home"}, {"callsign", "XX0ABC"}, {"id_field", "1234"}}};
        box.writeConfig(QJsonObject{
            {"general", QJsonObject{{"callsign", "XX0ABC"}}},
            {"dmr", QJsonObject{{"peers", QJsonArray{peer}}}},
            {"identities", QJsonObject{{"m17", me}, {"ysf", me}, {"nxdn", me}}},
            {"m17", reflectorSection(m17.port())},
            {"ysf", reflectorSection(ysf.port())},
            {"nxdn", reflectorSection(nxdn.port(), {{"tg", 65000}, {"ran", 1}})},
            {"svxlink",
             QJsonObject{{"servers",
                          QJsonObject{{QStringLiteral("127.0.0.1:%1").arg(svx.port()),
                                       QJsonObject{{"enabled", true}, {"callsign", "XX0ABC"}, {"auth_key", "pw"}}}}}}},
            {"allstar", QJsonObject{{"servers", QJsonArray{QJsonObject{{"name", "Hub"},
                                                                       {"host", "127.0.0.1"},
                                                                       {"port", allstar.port()},
                                                                       {"username", "radio"},
                                                                       {"node", "2000"},
                                                                       {"callsign", "XX0ABC"},
                                                                       {"enabled", true}}}}}}});
        QProcess* p = box.start();
        QTRY_VERIFY_WITH_TIMEOUT(master.isLoggedIn(240000101), kStartTimeoutMs);
        QTRY_COMPARE_WITH_TIMEOUT(m17.clients().size(), 1, kStartTimeoutMs);
        QTRY_COMPARE_WITH_TIMEOUT(ysf.clients().size(), 1, kStartTimeoutMs);
        QTRY_COMPARE_WITH_TIMEOUT(nxdn.clients().size(), 1, kStartTimeoutMs);
        QTRY_VERIFY_WITH_TIMEOUT(svx.node("XX0ABC") && svx.node("XX0ABC")->loggedIn, kStartTimeoutMs);
        QTRY_VERIFY_WITH_TIMEOUT(hasIax(allstar, kIaxAck), kStartTimeoutMs);
        const QString logDir = box.root() + "/log";
        QCOMPARE(ProgramSandbox::logFiles(logDir).size(), 1);
        const QString name = ProgramSandbox::logFiles(logDir).first();
        QVERIFY2(QRegularExpression("^zl-\\d{6}-\\d{6}\\.log$").match(name).hasMatch(), qPrintable(name));
        const QString path = logDir + "/" + name;
        QTRY_VERIFY_WITH_TIMEOUT(readAll(path).contains("main: window shown"), kStartTimeoutMs);

        QCOMPARE(::kill(pid_t(p->processId()), SIGTERM), 0);
        QTRY_COMPARE_WITH_TIMEOUT(master.receivedWith("RPTCL").size(), 1, kStartTimeoutMs);
        QTRY_COMPARE_WITH_TIMEOUT(p->state(), QProcess::NotRunning, kStartTimeoutMs);
        QCOMPARE(p->exitStatus(), QProcess::NormalExit);
        QCOMPARE(p->exitCode(), 0);
        QCOMPARE(master.received().last().data.left(5), QByteArray("RPTCL"));
        QVERIFY(!master.isLoggedIn(240000101));
        // The reflectors heard their unlink too, the last datagram of each.
        QTRY_VERIFY(!m17.received.isEmpty() && m17.received.last().startsWith("DISC"));
        QTRY_VERIFY(!ysf.received.isEmpty() && ysf.received.last().startsWith("YSFU"));
        QTRY_VERIFY(!nxdn.received.isEmpty() && nxdn.received.last().startsWith("NXDNU"));
        QTRY_VERIFY(svx.nodes().isEmpty());
        QTRY_VERIFY(hasIax(allstar, kIaxHangup));

        const QString log = readAll(path);
        QVERIFY(log.section('\n', 0, 0)
                    .endsWith(QStringLiteral("] [info] === zephyrlake log start, file=%1 ===")
                                  .arg(QFileInfo(path).absoluteFilePath())));
        // The console carries the same lines, and the configuration was read, not rewritten.
        QVERIFY(p->readAllStandardOutput().contains("[shutdown] ~MainWindow begin"));
        QVERIFY(readAll(box.configFile()).contains("\"general\""));
        const QList<int> at = linesOf(
            log, {"[shutdown] SIGINT/SIGTERM received — quitting",
                  "[shutdown] aboutToQuit — calling DmrPeerManager::stopAll()", "[shutdown] stopAll: m_peers count = 1",
                  "[shutdown]   stop() Home", "DmrPeer Home (Loop) DISCONNECT (sending RPTCL goodbye)",
                  "[shutdown]   delete Home", "[shutdown]   deleted Home", "[shutdown] stopAll: emit changed",
                  "[shutdown] stopAll: done", "[shutdown] AudioMixer::shutdown — releasing sink/source before QPA dies",
                  "[shutdown] aboutToQuit done", "[shutdown] app.exec() returned 0", "[shutdown] ~MainWindow begin"});
        QVERIFY2(!at.contains(-1), qPrintable(log));
        QVERIFY2(std::is_sorted(at.begin(), at.end()), qPrintable(log));
        // After the window began to go, only the pages' unlinking is left: no warning, no error.
        const QString tail = log.section("[shutdown] ~MainWindow begin", 1);
        QVERIFY2(!tail.contains("[warning]") && !tail.contains("[error]"), qPrintable(tail));
    }

    // A master and a reflector that go quiet for 70 s (the program's clocks run 20 times
    // faster here) are found again when they come back, without any user action.
    void linksComeBackAfterAMinuteOfSilence()
    {
        HomebrewMaster master;
        M17Reflector m17;
        QVERIFY(master.listen());
        master.addPeer(240000101, "pw");
        ProgramSandbox box(QStringLiteral("build"));
        QVERIFY(box.isValid());
        const QJsonObject peer = homePeer(master.port());
        const QJsonArray me{QJsonObject{{"label", "home"}, {"callsign", "XX0ABC"}}};
        box.writeConfig(QJsonObject{{"dmr", QJsonObject{{"peers", QJsonArray{peer}}}},
                                    {"identities", QJsonObject{{"m17", me}}},
                                    {"m17", reflectorSection(m17.port())}});
        qputenv("ZL_TIME_SCALE", "20");
        box.start();
        qunsetenv("ZL_TIME_SCALE");
        QTRY_VERIFY_WITH_TIMEOUT(master.isLoggedIn(240000101), kStartTimeoutMs);
        QTRY_COMPARE_WITH_TIMEOUT(m17.clients().size(), 1, kStartTimeoutMs);
        const auto connects = [&m17] {
            return std::count_if(m17.received.begin(), m17.received.end(),
                                 [](const QByteArray& d) { return d.startsWith("CONN"); });
        };
        const qsizetype configs = master.receivedWith("RPTC").size();
        const qsizetype links = connects();

        master.setSilent(true);
        m17.setSilent(true);
        QTest::qWait(70000 / 20);
        master.setSilent(false);
        m17.setSilent(false);
        QTRY_VERIFY_WITH_TIMEOUT(master.receivedWith("RPTC").size() > configs, kStartTimeoutMs);
        QTRY_VERIFY_WITH_TIMEOUT(connects() > links, kStartTimeoutMs);
        QTRY_COMPARE_WITH_TIMEOUT(m17.clients().size(), 1, kStartTimeoutMs);
    }

    void damagedConfigIsKeptAndReported_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<bool>("readable");
        QTest::addColumn<QString>("message");
        QTest::newRow("corrupt") << QByteArray("{\"dmr\": [\x01\x02 not json") << true << "was damaged";
        QTest::newRow("truncated") << QByteArray("{\"general\": {\"callsign\": \"XX0A") << true << "was damaged";
        QTest::newRow("unreadable") << QByteArray("{\"general\": {\"callsign\": \"XX0ABC\"}}") << false
                                    << "cannot be read";
    }

    void damagedConfigIsKeptAndReported()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(bool, readable);
        QFETCH(QString, message);
        ProgramSandbox box(QStringLiteral("build"));
        QVERIFY(box.isValid());
        box.writeConfigBytes(bytes);
        if (!readable)
            QVERIFY(QFile::setPermissions(box.configFile(), {}));
        QProcess* p = box.start();
        const QString logDir = box.root() + "/log";
        QTRY_COMPARE_WITH_TIMEOUT(ProgramSandbox::logFiles(logDir).size(), 1, kStartTimeoutMs);
        const QString path = logDir + "/" + ProgramSandbox::logFiles(logDir).first();
        QTRY_VERIFY_WITH_TIMEOUT(readAll(path).contains("main: window shown"), kStartTimeoutMs);
        QCOMPARE(::kill(pid_t(p->processId()), SIGTERM), 0);
        QVERIFY(p->waitForFinished(kStartTimeoutMs));
        QCOMPARE(p->exitCode(), 0);
        QVERIFY2(readAll(path).contains(message), qPrintable(readAll(path)));

        const QDir folder = QFileInfo(box.configFile()).dir();
        const QStringList copies = folder.entryList({"config.json.broken-*"}, QDir::Files);
        QCOMPARE(copies.size(), readable ? 1 : 0);
        QFile::setPermissions(box.configFile(), QFileDevice::ReadOwner | QFileDevice::WriteOwner);
        QFile kept(readable ? folder.filePath(copies.value(0)) : box.configFile());
        QVERIFY(kept.open(QIODevice::ReadOnly));
        QCOMPARE(kept.readAll(), bytes);
    }

    void disabledLogWritesNoFile()
    {
        ProgramSandbox box;
        QVERIFY(box.isValid());
        box.writeConfig(QJsonObject{{"general", QJsonObject{{"log_enabled", false}}}});
        QProcess* p = box.start();
        QByteArray out;
        QTRY_VERIFY_WITH_TIMEOUT((out += p->readAllStandardOutput()).contains("main: window shown"), kStartTimeoutMs);
        QVERIFY(out.contains("] [info] === zephyrlake log start (file disabled in settings) ==="));
        QCOMPARE(ProgramSandbox::logFiles(box.binaryDir() + "/log"), QStringList());
        QCOMPARE(::kill(pid_t(p->processId()), SIGINT), 0);
        QVERIFY(p->waitForFinished(kStartTimeoutMs));
        QCOMPARE(p->exitCode(), 0);
    }

    void installedProgramFindsItsFiles()
    {
        const auto box = ProgramSandbox::installed();
        QVERIFY(box->isValid());
        QVERIFY(QFile::exists(box->root() + "/share/zephyrlake/style.qss"));
        QVERIFY(QFile::exists(box->root() + "/share/zephyrlake/DMR_Hosts.txt"));
        const QString logDir = box->root() + "/logs";
        box->writeConfig(QJsonObject{{"general", QJsonObject{{"log_dir", logDir}}}});
        QProcess* p = box->start();
        QTRY_COMPARE_WITH_TIMEOUT(ProgramSandbox::logFiles(logDir).size(), 1, kStartTimeoutMs);
        const QString path = logDir + "/" + ProgramSandbox::logFiles(logDir).first();
        QTRY_VERIFY_WITH_TIMEOUT(readAll(path).contains("main: window shown"), kStartTimeoutMs);
        QCOMPARE(::kill(pid_t(p->processId()), SIGTERM), 0);
        QVERIFY(p->waitForFinished(kStartTimeoutMs));
        QCOMPARE(p->exitCode(), 0);
        const QString log = readAll(path);
        QVERIFY2(log.contains("StyleSheet: using \"" + box->root() + "/bin/../share/zephyrlake/style.qss\""),
                 qPrintable(log));
    }

    void readOnlyInstallLogsToTheStateFolder_data()
    {
        QTest::addColumn<bool>("stateWritable");
        QTest::newRow("state folder") << true;
        QTest::newRow("console only") << false;
    }

    void readOnlyInstallLogsToTheStateFolder()
    {
        QFETCH(bool, stateWritable);
        const auto box = ProgramSandbox::installed();
        QVERIFY(box->isValid());
        box->writeConfig({});
        // Nobody but root may write into an installed program's folders.
        QVERIFY(QFile::setPermissions(box->binaryDir(), QFileDevice::ReadOwner | QFileDevice::ExeOwner |
                                                            QFileDevice::ReadOther | QFileDevice::ExeOther));
        const QString state = box->root() + "/state";
        if (!stateWritable)
            QVERIFY(QFile::setPermissions(state, QFileDevice::ReadOwner | QFileDevice::ExeOwner |
                                                     QFileDevice::ReadOther | QFileDevice::ExeOther));
        QProcess* p = box->start();
        QByteArray console;
        QTRY_VERIFY_WITH_TIMEOUT((console += p->readAllStandardOutput()).contains("main: window shown"),
                                 kStartTimeoutMs);
        QCOMPARE(::kill(pid_t(p->processId()), SIGTERM), 0);
        QVERIFY(p->waitForFinished(kStartTimeoutMs));
        QCOMPARE(p->exitCode(), 0);
        console += p->readAllStandardOutput();
        QVERIFY(ProgramSandbox::logFiles(box->binaryDir() + "/log").isEmpty());
        const QStringList logs = ProgramSandbox::logFiles(state + "/zephyrlake/log");
        QCOMPARE(logs.size(), stateWritable ? 1 : 0);
        QCOMPARE(console.contains("logging to the console only"), !stateWritable);
        if (stateWritable)
            QVERIFY(readAll(state + "/zephyrlake/log/" + logs.first()).contains("[shutdown] app.exec() returned 0"));
    }

    void rootIsRefusedAfterTheLogOpens()
    {
        if (::geteuid() != 0)
            QSKIP("needs to run as root to see the refusal");
        ProgramSandbox box;
        QVERIFY(box.isValid());
        QProcess* p = box.start({}, true);
        QVERIFY(p->waitForFinished(kStartTimeoutMs));
        QCOMPARE(p->exitStatus(), QProcess::NormalExit);
        QCOMPARE(p->exitCode(), 1);
        // Started outside a build tree, the log lies below the program's folder.
        const QStringList logs = ProgramSandbox::logFiles(box.binaryDir() + "/log");
        QCOMPARE(logs.size(), 1);
        const QString log = readAll(box.binaryDir() + "/log/" + logs.first());
        QVERIFY(log.contains("=== zephyrlake log start, file="));
        QVERIFY(log.contains("main: refusing to run as root"));
        QVERIFY(!log.contains("main: window shown"));
        QVERIFY(!log.contains("~MainWindow"));
    }
};

QTEST_GUILESS_MAIN(TestStartup)
#include "tst_startup.moc"
