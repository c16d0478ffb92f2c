// Starts the real program, as a normal user, in a private folder tree.
#include "EchoLinkDirectoryServer.h"
#include "EchoLinkPeer.h"
#include "HomebrewMaster.h"
#include "IaxServer.h"
#include "M17Reflector.h"
#include "NxdnReflector.h"
#include "PrivateNetwork.h"
#include "ProgramSandbox.h"
#include "SvxReflector.h"
#include "VoiceTestKit.h"
#include "YsfReflector.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QTest>

#include <algorithm>
#include <csignal>
#include <memory>
#include <optional>
#include <unistd.h>

namespace {

// Start-up under the sanitizers is slow on a loaded 2-core machine.
constexpr int kStartTimeoutMs = 60000;
constexpr quint32 kPeerId = 240000101;

QString readAll(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

// The one log file in folder once it holds line, or an empty path after the time-out.
QString logWith(const QString& folder, const QString& line)
{
    QString path;
    QTest::qWaitFor(
        [&] {
            const QStringList files = ProgramSandbox::logFiles(folder);
            path = files.size() == 1 ? folder + "/" + files.first() : QString();
            return !path.isEmpty() && readAll(path).contains(line);
        },
        kStartTimeoutMs);
    return readAll(path).contains(line) ? path : QString();
}

// Ends the program with sig; true when it then exits normally with status 0.
bool stop(QProcess* p, int sig = SIGTERM)
{
    return ::kill(pid_t(p->processId()), sig) == 0 && p->waitForFinished(kStartTimeoutMs) &&
           p->exitStatus() == QProcess::NormalExit && p->exitCode() == 0;
}

// Whether the IAX2 server got a control frame of this subclass (4 ACK, 5 HANGUP).
bool hasIax(const IaxServer& server, quint8 subclass)
{
    return std::any_of(server.received.begin(), server.received.end(), [subclass](const IaxServer::Frame& f) {
        return f.full && f.type == 6 && f.subclass == subclass;
    });
}

// The RTCP kind an EchoLink control datagram carries after its empty receiver report: 202 SDES, 203 BYE.
int rtcpKind(const QByteArray& datagram)
{
    return datagram.size() > 9 ? quint8(datagram.at(9)) : 0;
}

// Whether each needle is in text, in the order given.
bool inOrder(const QString& text, const QStringList& needles)
{
    qsizetype from = 0;
    for (const QString& needle : needles) {
        from = text.indexOf(needle, from);
        if (from < 0)
            return false;
    }
    return true;
}

// A mode section with one user server on loopback, selected and enabled.
QString reflector(quint16 port, const QString& row = {})
{
    return QStringLiteral(R"({"user_servers": [{"id": "u", "name": "Loop", "host": "127.0.0.1", "port": %1}],
                              "selected_server_ids": ["u"], "servers": {"u": {"enabled": true%2}}})")
        .arg(port)
        .arg(row);
}

QJsonArray storedLastHeard(const QString& configFile)
{
    const QJsonObject config = QJsonDocument::fromJson(readAll(configFile).toUtf8()).object();
    return config.value("lastheard").toObject().value("entries").toArray();
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
    }

    // Every link the program holds is up (a call on the DMR peer is decoded and stored), then
    // SIGTERM: each peer hears its goodbye and the log shows the shutdown in order.
    void everyLinkSaysGoodbyeOnSigterm_data()
    {
        QTest::addColumn<bool>("echolink");
        QTest::newRow("loopback links") << false;
        // EchoLink's ports are fixed, and a station calls from them: the program and the station
        // each get a network of their own.
        QTest::newRow("and an EchoLink QSO") << true;
    }

    void everyLinkSaysGoodbyeOnSigterm()
    {
        QFETCH(bool, echolink);
        std::optional<PrivateNetwork> net;
        std::unique_ptr<EchoLinkDirectoryServer> directory;
        std::unique_ptr<EchoLinkPeer> station;
        if (echolink) {
            net.emplace();
            if (!net->isPermitted())
                QSKIP(qPrintable("cannot make a private network: " + net->failure()));
            QVERIFY2(net->isReady(), qPrintable(net->failure()));
            directory = std::make_unique<EchoLinkDirectoryServer>(QHostAddress::LocalHost, 5200);
            QVERIFY(directory->isListening());
            station = net->onNeighbour(
                [] { return std::make_unique<EchoLinkPeer>(PrivateNetwork::neighbourAddress(), 5198, 5199); });
            QVERIFY(station->isBound());
        }
        SimulatedAmbeChip chip;
        const quint16 chipPort = chip.listenUdp();
        HomebrewMaster master;
        M17Reflector m17;
        YsfReflector ysf;
        NxdnReflector nxdn(65000);
        SvxReflector svx;
        svx.setPassword("XX0ABC", "pw");
        IaxServer allstar;
        QVERIFY(chipPort != 0 && master.listen());
        master.addPeer(kPeerId, "pw");
        // From a folder named "build" the log goes beside it.
        ProgramSandbox box(QStringLiteral("build"));
        QVERIFY(box.isValid());
        const QString me = R"([{"label": "home", "callsign": "XX0ABC", "id_field": "1234"}])";
        const QString echolinkSection = R"(, "echolink": {"enabled": true, "callsign": "XX0ABC", "password": "pw",
                                                      "servers": "127.0.0.1", "accept_incoming": true})";
        box.writeConfigBytes(
            QStringLiteral(
                R"({"hardware": {"ambe_md380_enabled": false, "ambe_servers": [{"host": "127.0.0.1", "port": %1}]},
                "dmr": {"peers": [{"label": "Home", "network": "Loop", "server": "127.0.0.1:%2", "password": "pw",
                                   "callsign_override": "XX0ABC", "dmrid_override": "2400001",
                                   "essid_override": "01", "auto_connect": true}]},
                "identities": {"m17": %3, "ysf": %3, "nxdn": %3}, "m17": %4, "ysf": %5, "nxdn": %6,
                "svxlink": {"servers": {"127.0.0.1:%7": {"enabled": true, "callsign": "XX0ABC", "auth_key": "pw"}}},
                "allstar": {"servers": [{"name": "Hub", "host": "127.0.0.1", "port": %8, "username": "radio",
                                         "node": "2000", "callsign": "XX0ABC", "enabled": true}]}%9})")
                .arg(QString::number(chipPort), QString::number(master.port()), me, reflector(m17.port()),
                     reflector(ysf.port()), reflector(nxdn.port(), R"(, "tg": 65000, "ran": 1)"),
                     QString::number(svx.port()), QString::number(allstar.port()), echolink ? echolinkSection : "")
                .toUtf8());
        QProcess* p = box.start();
        QTRY_VERIFY_WITH_TIMEOUT(master.isLoggedIn(kPeerId), kStartTimeoutMs);
        QTRY_COMPARE_WITH_TIMEOUT(m17.clients().size(), 1, kStartTimeoutMs);
        QTRY_COMPARE_WITH_TIMEOUT(ysf.clients().size(), 1, kStartTimeoutMs);
        QTRY_COMPARE_WITH_TIMEOUT(nxdn.clients().size(), 1, kStartTimeoutMs);
        QTRY_VERIFY_WITH_TIMEOUT(svx.node("XX0ABC") && svx.node("XX0ABC")->loggedIn, kStartTimeoutMs);
        QTRY_VERIFY_WITH_TIMEOUT(hasIax(allstar, 4), kStartTimeoutMs);
        const QString logDir = box.root() + "/log";
        const QString path = logWith(logDir, "main: window shown");
        QVERIFY(QRegularExpression("/zl-\\d{6}-\\d{6}\\.log$").match(path).hasMatch());
        if (echolink) {
            // Registered, the program listens for stations; it takes the call by answering the
            // station's SDES with its own.
            QTRY_VERIFY_WITH_TIMEOUT(!directory->requests.isEmpty(), kStartTimeoutMs);
            QTRY_VERIFY_WITH_TIMEOUT(readAll(path).contains("EchoLinkDispatcher: bound UDP"), kStartTimeoutMs);
            station->connectTo(PrivateNetwork::hereAddress());
            QTRY_VERIFY_WITH_TIMEOUT(!station->ctrlReceived.isEmpty(), kStartTimeoutMs);
            QCOMPARE(rtcpKind(station->ctrlReceived.first()), 202);
        } else {
            // A call from the master: decoded by the chip, stored with its duration once it ended.
            const quint32 stream = 0x5eed0002;
            const QByteArray burst = kit::toneBurst(8000, 1000);
            master.sendToPeer(kPeerId, kit::dmrd(0, 2409999, 91, 0xA1, stream, QByteArray(33, '\0')));
            for (quint8 i = 0; i < 6; ++i)
                master.sendToPeer(kPeerId, kit::dmrd(quint8(i + 1), 2409999, 91, quint8(0x80 | (i == 0 ? 0x10 : 0) | i),
                                                     stream, burst));
            master.sendToPeer(kPeerId, kit::dmrd(7, 2409999, 91, 0xA2, stream, QByteArray(33, '\0')));
            QTRY_VERIFY_WITH_TIMEOUT(
                storedLastHeard(box.configFile()).at(0).toObject().value("dur").toString().endsWith(" s"),
                kStartTimeoutMs);
            const QJsonObject row = storedLastHeard(box.configFile()).first().toObject();
            QCOMPARE(row.value("call").toString() + "|" + row.value("mode").toString() + "|" +
                         row.value("server").toString() + "|" + row.value("target").toString(),
                     QString("2409999|DMR|Loop|TG 91 TS2"));
            QVERIFY(chip.packetsReceived(1) >= 18);
        }

        QCOMPARE(::kill(pid_t(p->processId()), SIGTERM), 0);
        QTRY_COMPARE_WITH_TIMEOUT(master.receivedWith("RPTCL").size(), 1, kStartTimeoutMs);
        QTRY_COMPARE_WITH_TIMEOUT(p->state(), QProcess::NotRunning, kStartTimeoutMs);
        QCOMPARE(p->exitStatus(), QProcess::NormalExit);
        QCOMPARE(p->exitCode(), 0);
        QCOMPARE(master.received().last().data.left(5), QByteArray("RPTCL"));
        QVERIFY(!master.isLoggedIn(kPeerId));
        // The reflectors heard their unlink too, the last datagram of each.
        QTRY_VERIFY(!m17.received.isEmpty() && m17.received.last().startsWith("DISC"));
        QTRY_VERIFY(!ysf.received.isEmpty() && ysf.received.last().startsWith("YSFU"));
        QTRY_VERIFY(!nxdn.received.isEmpty() && nxdn.received.last().startsWith("NXDNU"));
        QTRY_VERIFY(svx.nodes().isEmpty());
        QTRY_VERIFY(hasIax(allstar, 5));
        if (echolink)
            QTRY_COMPARE(rtcpKind(station->ctrlReceived.last()), 203);

        const QString log = readAll(path);
        QVERIFY2(log.section('\n', 0, 0)
                     .endsWith(QStringLiteral("] [info] === zephyrlake log start, file=%1 ===").arg(path)),
                 qPrintable(log.section('\n', 0, 0)));
        QVERIFY2(
            inOrder(log, {"[shutdown] SIGINT/SIGTERM received — quitting",
                          "[shutdown] aboutToQuit — calling DmrPeerManager::stopAll()",
                          "[shutdown] stopAll: m_peers count = 1", "[shutdown]   stop() Home",
                          "DmrPeer Home (Loop) DISCONNECT (sending RPTCL goodbye)", "[shutdown]   delete Home",
                          "[shutdown]   deleted Home", "[shutdown] stopAll: emit changed", "[shutdown] stopAll: done",
                          "[shutdown] AudioMixer::shutdown — releasing sink/source before QPA dies",
                          "[shutdown] aboutToQuit done", "[shutdown] app.exec() returned 0",
                          "[shutdown] ~MainWindow begin"}),
            qPrintable(log));
        // The console carries the same lines; after the window began to go, only the pages'
        // unlinking is left: no warning, no error.
        QVERIFY(p->readAllStandardOutput().contains("[shutdown] ~MainWindow begin"));
        const QString tail = log.section("[shutdown] ~MainWindow begin", 1);
        QVERIFY2(!tail.contains("[warning]") && !tail.contains("[error]"), qPrintable(tail));
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
        const QString path = logWith(box.root() + "/log", "main: window shown");
        QVERIFY(!path.isEmpty());
        QVERIFY(stop(p));
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
        QVERIFY(stop(p, SIGINT));
        QCOMPARE(ProgramSandbox::logFiles(box.binaryDir() + "/log"), QStringList());
    }

    // As `cmake --install` lays it out: the program finds its shared files and logs to the
    // configured folder; nobody but root may write into its folders, so otherwise the log goes
    // to the state folder, or only to the console when that is not writable either.
    void installedProgramLogsWhereItMay_data()
    {
        QTest::addColumn<QString>("where");
        QTest::newRow("configured folder") << "logs";
        QTest::newRow("state folder") << "state";
        QTest::newRow("console only") << "console";
    }

    void installedProgramLogsWhereItMay()
    {
        QFETCH(QString, where);
        const auto box = ProgramSandbox::installed();
        QVERIFY(box->isValid());
        QVERIFY(QFile::exists(box->root() + "/share/zephyrlake/DMR_Hosts.txt"));
        const QFileDevice::Permissions readOnly =
            QFileDevice::ReadOwner | QFileDevice::ExeOwner | QFileDevice::ReadOther | QFileDevice::ExeOther;
        QString logDir = box->root() + "/state/zephyrlake/log";
        if (where == "logs") {
            logDir = box->root() + "/logs";
            box->writeConfig(QJsonObject{{"general", QJsonObject{{"log_dir", logDir}}}});
        } else {
            box->writeConfig({});
            QVERIFY(QFile::setPermissions(box->binaryDir(), readOnly));
        }
        if (where == "console")
            QVERIFY(QFile::setPermissions(box->root() + "/state", readOnly));
        QProcess* p = box->start();
        QByteArray console;
        QTRY_VERIFY_WITH_TIMEOUT((console += p->readAllStandardOutput()).contains("main: window shown"),
                                 kStartTimeoutMs);
        QVERIFY(stop(p));
        console += p->readAllStandardOutput();
        QCOMPARE(console.contains("logging to the console only"), where == "console");
        QVERIFY(ProgramSandbox::logFiles(box->binaryDir() + "/log").isEmpty());
        const QStringList logs = ProgramSandbox::logFiles(logDir);
        QCOMPARE(logs.size(), where == "console" ? 0 : 1);
        const QString log = readAll(logDir + "/" + logs.value(0));
        QCOMPARE(log.contains("[shutdown] app.exec() returned 0"), where != "console");
        QVERIFY(
            console.contains("StyleSheet: using \"" + box->root().toUtf8() + "/bin/../share/zephyrlake/style.qss\""));
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
        QVERIFY(inOrder(log, {"=== zephyrlake log start, file=", "main: refusing to run as root"}));
        QVERIFY(!log.contains("main: window shown"));
    }
};

QTEST_GUILESS_MAIN(TestStartup)
#include "tst_startup.moc"
