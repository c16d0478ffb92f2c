// Idle cost of the running program: CPU time over 30 s and resident memory, with five peers
// logged in to a loopback master. Run as a normal user: bench_idle [seconds] [binary].
#include "HomebrewMaster.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QTimer>

#include <cstdio>
#include <unistd.h>

namespace {

constexpr int kPeers = 5;

// utime + stime of a process in clock ticks.
long long cpuTicks(qint64 pid)
{
    QFile file(QStringLiteral("/proc/%1/stat").arg(pid));
    if (!file.open(QIODevice::ReadOnly))
        return -1;
    const QByteArray stat = file.readAll();
    // Fields after the command name, which is in parentheses and may hold blanks.
    const QList<QByteArray> fields = stat.mid(stat.lastIndexOf(')') + 2).split(' ');
    return fields.value(11).toLongLong() + fields.value(12).toLongLong();
}

QByteArray statusLine(qint64 pid, const QByteArray& key)
{
    QFile file(QStringLiteral("/proc/%1/status").arg(pid));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    for (const QByteArray& line : file.readAll().split('\n')) {
        if (line.startsWith(key))
            return line.mid(key.size()).trimmed();
    }
    return {};
}

// Runs the event loop (the master must answer) for ms milliseconds.
void spin(int ms)
{
    QEventLoop loop;
    QTimer::singleShot(ms, &loop, &QEventLoop::quit);
    loop.exec();
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const int seconds = argc > 1 ? std::max(1, atoi(argv[1])) : 30;
    const QString binary = argc > 2 ? QString::fromLocal8Bit(argv[2]) : QStringLiteral(ZL_BINARY);

    HomebrewMaster master;
    if (!master.listen())
        return 1;
    QJsonArray peers;
    QList<quint32> ids;
    for (int i = 0; i < kPeers; ++i) {
        const quint32 id = 240000100 + quint32(i + 1);
        ids << id;
        master.addPeer(id, QStringLiteral("pw%1").arg(i));
        peers.append(QJsonObject{{"label", QStringLiteral("P%1").arg(i)},
                                 {"callsign_override", "XX0ABC"},
                                 {"dmrid_override", "2400001"},
                                 {"essid_override", QStringLiteral("%1").arg(i + 1, 2, 10, QLatin1Char('0'))},
                                 {"server", QStringLiteral("127.0.0.1:%1").arg(master.port())},
                                 {"password", QStringLiteral("pw%1").arg(i)},
                                 {"auto_connect", true}});
    }

    QTemporaryDir home;
    const QString configDir = home.filePath(QStringLiteral("config/xx0abc/zephyrlake"));
    QDir().mkpath(configDir);
    QFile config(configDir + QStringLiteral("/config.json"));
    if (!config.open(QIODevice::WriteOnly))
        return 1;
    const QJsonObject root{{"general", QJsonObject{{"log_dir", home.filePath("log")}}},
                           {"hardware", QJsonObject{{"ambe_md380_enabled", false}}},
                           {"dmr", QJsonObject{{"peers", peers}, {"default_peer_label", "P0"}}}};
    config.write(QJsonDocument(root).toJson());
    config.close();

    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("HOME"), home.path());
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), home.filePath(QStringLiteral("config")));
    env.insert(QStringLiteral("XDG_CACHE_HOME"), home.filePath(QStringLiteral("cache")));
    if (!env.contains(QStringLiteral("QT_QPA_PLATFORM")))
        env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    QProcess proc;
    proc.setProcessEnvironment(env);
    proc.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    proc.start(binary, {});
    const auto allIn = [&] {
        for (quint32 id : ids) {
            if (!master.isLoggedIn(id))
                return false;
        }
        return true;
    };
    const QDeadlineTimer deadline(30000);
    while (!allIn() && !deadline.hasExpired())
        spin(50);
    const bool up = allIn();
    if (!up) {
        std::fprintf(stderr, "the peers did not log in\n");
        return 1;
    }
    // Settle, then measure while nothing happens but the keep-alives.
    spin(2000);
    const long long before = cpuTicks(proc.processId());
    spin(seconds * 1000);
    const long long after = cpuTicks(proc.processId());
    const double cpuSeconds = double(after - before) / double(sysconf(_SC_CLK_TCK));
    std::printf("idle with %d connected peers over %d s: CPU %.2f s = %.2f %% of one core; VmRSS %s, VmHWM %s\n",
                kPeers, seconds, cpuSeconds, 100.0 * cpuSeconds / seconds,
                statusLine(proc.processId(), "VmRSS:").constData(), statusLine(proc.processId(), "VmHWM:").constData());
    proc.terminate();
    proc.waitForFinished(10000);
    return 0;
}
