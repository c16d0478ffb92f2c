#pragma once

#include <QByteArray>
#include <QProcessEnvironment>
#include <QStringList>

#include <sys/types.h>

// Helper programs started with posix_spawn, for suites that run under ThreadSanitizer: QProcess
// uses clone(CLONE_VM | CLONE_VFORK), after which the race detector loses track of the parent.
class SpawnedProgram {
public:
    // Starts program (looked up in PATH); its output goes to outputFile, or to /dev/null.
    SpawnedProgram(const QString& program, const QStringList& args, const QProcessEnvironment& env,
                   const QString& outputFile = QString());
    ~SpawnedProgram(); // ends it (SIGTERM, then SIGKILL after 5 s)
    SpawnedProgram(const SpawnedProgram&) = delete;
    SpawnedProgram& operator=(const SpawnedProgram&) = delete;

    bool isRunning();
    bool waitForFinished(int ms);

    // Runs program to its end and gives its standard output; null if it failed or overran.
    static QByteArray run(const QString& program, const QStringList& args, const QProcessEnvironment& env,
                          int timeoutMs);

private:
    pid_t pid = -1;
    int pidFd = -1;
    bool reaped = false;
};
