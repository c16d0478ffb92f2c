// Measures the time from exec of zephyrlake to its window being shown, over several runs,
// with the offscreen platform and a throw-away configuration. Run as a normal user.
// Arguments: runs, binary, and the number of users in the cached DMR user list (0: none).
#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <vector>

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const int runs = argc > 1 ? std::max(1, atoi(argv[1])) : 10;
    const QString binary = argc > 2 && argv[2][0] ? QString::fromLocal8Bit(argv[2]) : QStringLiteral(ZL_BINARY);
    const int users = argc > 3 ? std::max(0, atoi(argv[3])) : 0;
    QByteArray userList;
    for (int i = 0; i < users; ++i)
        userList += QByteArray::number(1000000 + i) + "\tDL" + QByteArray::number(i % 10) + "ABC\tFirstname\n";
    std::vector<double> ms;
    for (int i = 0; i < runs; ++i) {
        QTemporaryDir home;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("HOME"), home.path());
        env.insert(QStringLiteral("XDG_CONFIG_HOME"), home.filePath(QStringLiteral("config")));
        env.insert(QStringLiteral("XDG_CACHE_HOME"), home.filePath(QStringLiteral("cache")));
        if (!env.contains(QStringLiteral("QT_QPA_PLATFORM")))
            env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
        // The log goes into the throw-away home, as a user's would go to its folder.
        QDir().mkpath(home.filePath(QStringLiteral("config/xx0abc/zephyrlake")));
        QFile config(home.filePath(QStringLiteral("config/xx0abc/zephyrlake/config.json")));
        if (config.open(QIODevice::WriteOnly))
            config.write(
                QStringLiteral("{\"general\": {\"log_dir\": \"%1\"}, \"directories\": {\"host_lists_url\": "
                               "\"%2\", \"users_url\": \"%2\", \"repeaters_url\": \"%2\", \"tgif_url\": \"%2\"}}")
                    .arg(home.filePath("log"), QStringLiteral("http://127.0.0.1:9"))
                    .toUtf8());
        config.close();
        // A user list fetched an hour ago: read at start, not fetched. The downloads go
        // nowhere, as on a machine without a network.
        if (users > 0) {
            QDir().mkpath(home.filePath(QStringLiteral("cache/xx0abc/zephyrlake")));
            QFile list(home.filePath(QStringLiteral("cache/xx0abc/zephyrlake/dmr_users.tsv")));
            QFile stamp(list.fileName() + QStringLiteral(".stamp"));
            if (list.open(QIODevice::WriteOnly) && stamp.open(QIODevice::WriteOnly)) {
                list.write(userList);
                stamp.write(QDateTime::currentDateTime().addSecs(-3600).toString(Qt::ISODate).toUtf8());
            }
        }
        QProcess proc;
        proc.setProcessEnvironment(env);
        proc.setWorkingDirectory(home.path());
        QElapsedTimer timer;
        timer.start();
        proc.start(binary, {});
        QByteArray out;
        while (!out.contains("main: window shown") && proc.waitForReadyRead(10000))
            out += proc.readAllStandardOutput();
        const double elapsed = timer.nsecsElapsed() / 1e6;
        proc.terminate();
        proc.waitForFinished(10000);
        if (!out.contains("main: window shown")) {
            std::fprintf(stderr, "run %d: no window (%s)\n", i, out.constData());
            return 1;
        }
        ms.push_back(elapsed);
    }
    std::sort(ms.begin(), ms.end());
    std::printf("%d cached users; ", users);
    std::printf("exec to window shown over %d runs: min %.1f ms, median %.1f ms, max %.1f ms\n", runs, ms.front(),
                ms[ms.size() / 2], ms.back());
    return 0;
}
