#include "SpawnedProgram.h"

#include <QDeadlineTimer>

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <vector>

namespace {

// posix_spawn's argument and environment vectors, kept alive for the call.
struct Vectors {
    std::vector<QByteArray> storage;
    std::vector<char*> argv;
    std::vector<char*> envp;

    Vectors(const QString& program, const QStringList& args, const QProcessEnvironment& env)
    {
        storage.push_back(program.toLocal8Bit());
        for (const QString& arg : args)
            storage.push_back(arg.toLocal8Bit());
        const qsizetype argc = storage.size();
        for (const QString& entry : env.toStringList())
            storage.push_back(entry.toLocal8Bit());
        for (qsizetype i = 0; i < qsizetype(storage.size()); ++i)
            (i < argc ? argv : envp).push_back(storage[size_t(i)].data());
        argv.push_back(nullptr);
        envp.push_back(nullptr);
    }
};

// Standard output goes to outFd, and standard error too when mergeErrors is set.
pid_t spawn(const QString& program, const QStringList& args, const QProcessEnvironment& env, int outFd,
            bool mergeErrors)
{
    Vectors v(program, args, env);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, outFd, STDOUT_FILENO);
    if (mergeErrors)
        posix_spawn_file_actions_adddup2(&actions, outFd, STDERR_FILENO);
    else
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t pid = -1;
    // The program is looked up in the test's own PATH.
    if (::posix_spawnp(&pid, v.argv[0], &actions, nullptr, v.argv.data(), v.envp.data()) != 0)
        pid = -1;
    posix_spawn_file_actions_destroy(&actions);
    return pid;
}

// Waits for fd to become readable, at most ms; false on time-out.
bool waitReadable(int fd, int ms)
{
    pollfd p{fd, POLLIN, 0};
    int n;
    do {
        n = ::poll(&p, 1, ms);
    } while (n < 0 && errno == EINTR);
    return n > 0;
}

} // namespace

SpawnedProgram::SpawnedProgram(const QString& program, const QStringList& args, const QProcessEnvironment& env,
                               const QString& outputFile)
{
    const QByteArray path = outputFile.isEmpty() ? QByteArray("/dev/null") : outputFile.toLocal8Bit();
    const int out = ::open(path.constData(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (out < 0)
        return;
    pid = spawn(program, args, env, out, true);
    ::close(out);
    if (pid > 0)
        pidFd = int(::syscall(SYS_pidfd_open, pid, 0));
}

SpawnedProgram::~SpawnedProgram()
{
    if (isRunning()) {
        ::kill(pid, SIGTERM);
        if (!waitForFinished(5000)) {
            ::kill(pid, SIGKILL);
            waitForFinished(5000);
        }
    }
    if (pidFd >= 0)
        ::close(pidFd);
}

bool SpawnedProgram::isRunning()
{
    return pid > 0 && !waitForFinished(0);
}

bool SpawnedProgram::waitForFinished(int ms)
{
    if (pid <= 0 || reaped)
        return true;
    // The pidfd turns readable when the program ends.
    if (pidFd >= 0 && !waitReadable(pidFd, ms))
        return false;
    reaped = ::waitpid(pid, nullptr, pidFd >= 0 ? 0 : WNOHANG) == pid;
    return reaped;
}

QByteArray SpawnedProgram::run(const QString& program, const QStringList& args, const QProcessEnvironment& env,
                               int timeoutMs)
{
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0)
        return {};
    const pid_t pid = spawn(program, args, env, fds[1], false);
    ::close(fds[1]);
    if (pid <= 0) {
        ::close(fds[0]);
        return {};
    }
    QByteArray out;
    const QDeadlineTimer deadline(timeoutMs);
    bool overran = false;
    for (;;) {
        if (!waitReadable(fds[0], int(deadline.remainingTime()))) {
            overran = true;
            break;
        }
        char buffer[4096];
        const ssize_t n = ::read(fds[0], buffer, sizeof buffer);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        out.append(buffer, n);
    }
    ::close(fds[0]);
    if (overran)
        ::kill(pid, SIGKILL);
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    if (overran || !WIFEXITED(status) || WEXITSTATUS(status) != 0)
        return {};
    return out.isNull() ? QByteArray("") : out;
}
