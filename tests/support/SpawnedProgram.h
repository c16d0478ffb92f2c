#pragma once

#include <QByteArray>
#include <QProcessEnvironment>
#include <QStringList>

#include <sys/types.h>

// Helper programs started with posix_spawn rather than QProcess. Qt starts a child with
// clone(CLONE_VM | CLONE_VFORK), and the ThreadSanitizer runtime's clone interceptor then
// runs its fork bookkeeping in the child on the parent's own memory: afterwards the parent's
// main thread is no longer followed properly (its locks go unseen, so every lock it shares
// with another thread shows as a race). posix_spawn is modelled correctly. Suites that run
// under ThreadSanitizer start their helpers through this.
class SpawnedProgram {
public:
    // Starts program (looked up in PATH) with args and env; its standard output and error
    // go to outputFile, or to /dev/null when empty. isRunning() tells whether it started.
    SpawnedProgram(const QString& program, const QStringList& args, const QProcessEnvironment& env,
                   const QString& outputFile = QString());
    ~SpawnedProgram(); // ends it (SIGTERM, then SIGKILL after 5 s)
    SpawnedProgram(const SpawnedProgram&) = delete;
    SpawnedProgram& operator=(const SpawnedProgram&) = delete;

    bool isRunning();
    // Waits up to ms for the program to end; true once it has.
    bool waitForFinished(int ms);

    // Runs program to its end (at most timeoutMs) and gives its standard output, or a null
    // array if it failed, exited non-zero or overran.
    static QByteArray run(const QString& program, const QStringList& args, const QProcessEnvironment& env,
                          int timeoutMs);

private:
    pid_t pid = -1;
    int pidFd = -1;
    bool reaped = false;
};
