// Measures the time from exec of zephyrlake to its window being shown, over several runs,
// with the offscreen platform and a throw-away configuration. Run as a normal user.
#include <QCoreApplication>
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
    const QString binary = argc > 2 ? QString::fromLocal8Bit(argv[2]) : QStringLiteral(ZL_BINARY);
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
            config.write(QStringLiteral("{\"general\": {\"log_dir\": \"%1\"}}").arg(home.filePath("log")).toUtf8());
        config.close();
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
    std::printf("exec to window shown over %d runs: min %.1f ms, median %.1f ms, max %.1f ms\n", runs, ms.front(),
                ms[ms.size() / 2], ms.back());
    return 0;
}
