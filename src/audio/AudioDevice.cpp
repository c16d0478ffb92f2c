#include "AudioDevice.h"

#include <QAudioDevice>
#include <QElapsedTimer>
#include <QMediaDevices>

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace zl {

namespace {

QStringList descriptions(const QList<QAudioDevice>& devices)
{
    QStringList names;
    for (const QAudioDevice& device : devices)
        names.append(device.description());
    return names;
}

constexpr qint64 kPactlMs = 4000;

// Runs pactl; its standard output if it ran to a normal end with code 0, else null. A hung
// pactl is killed: the main thread waits at most 4 s. Spawned, not forked: the program has
// threads, and a forked copy of it may not run until its exec.
QByteArray runPactl(const QStringList& args)
{
    std::vector<QByteArray> storage{QByteArrayLiteral("pactl")};
    for (const QString& arg : args)
        storage.push_back(arg.toLocal8Bit());
    std::vector<char*> argv;
    for (QByteArray& arg : storage)
        argv.push_back(arg.data());
    argv.push_back(nullptr);
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0)
        return {};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t pid = -1;
    const bool started = posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ) == 0;
    posix_spawn_file_actions_destroy(&actions);
    close(fds[1]);
    QByteArray out("");
    QElapsedTimer clock;
    clock.start();
    bool ended = !started;
    while (!ended && clock.elapsed() < kPactlMs) {
        pollfd in{fds[0], POLLIN, 0};
        if (poll(&in, 1, int(kPactlMs - clock.elapsed())) <= 0)
            continue;
        char chunk[4096];
        const ssize_t got = read(fds[0], chunk, sizeof chunk);
        if (got > 0)
            out.append(chunk, got);
        ended = got == 0 || (got < 0 && errno != EINTR);
    }
    close(fds[0]);
    if (!started)
        return {};
    if (!ended)
        kill(pid, SIGKILL);
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    if (!ended || !WIFEXITED(status) || WEXITSTATUS(status) != 0)
        return {};
    return out;
}

class PulseAudioDevice : public AudioDevice {
public:
    QStringList listInputs() const override { return descriptions(QMediaDevices::audioInputs()); }
    QStringList listOutputs() const override { return descriptions(QMediaDevices::audioOutputs()); }

    QList<CardProfile> listCardProfiles() const override
    {
        return parseCardProfiles(QString::fromUtf8(runPactl({QStringLiteral("list"), QStringLiteral("cards")})));
    }

    bool setCardProfile(const QString& card, const QString& profile) const override
    {
        if (card.isEmpty() || profile.isEmpty())
            return false;
        return !runPactl({QStringLiteral("set-card-profile"), card, profile}).isNull();
    }
};

// One card's profile section as the walk through the list gathers it.
struct CardState {
    QString name;
    QString active;
    QList<CardProfile> offered;

    // The card's profiles except those in use now (a combined profile names each part).
    void closeInto(QList<CardProfile>& result)
    {
        const QStringList inUse = active.split(QLatin1Char('+'));
        for (const CardProfile& p : std::as_const(offered)) {
            if (!inUse.contains(p.profile))
                result.append(p);
        }
        *this = {};
    }
};

} // namespace

AudioDevice& AudioDevice::instance()
{
    static PulseAudioDevice device;
    return device;
}

QList<CardProfile> AudioDevice::parseCardProfiles(const QString& cardList)
{
    QList<CardProfile> result;
    CardState card;
    bool inProfiles = false;
    const QString sinksMark = QStringLiteral(" (sinks:");
    for (const QString& raw : cardList.split(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
        const QString line = raw.trimmed();
        if (line.startsWith(QLatin1String("Name: "))) {
            card.closeInto(result);
            inProfiles = false;
            // Only ALSA cards have output profiles to switch between; Bluetooth and the like don't count.
            if (line.startsWith(QLatin1String("Name: alsa_card.")))
                card.name = line.mid(6).trimmed();
        } else if (line == QLatin1String("Profiles:")) {
            inProfiles = true;
        } else if (line == QLatin1String("Ports:")) {
            inProfiles = false;
        } else if (line.startsWith(QLatin1String("Active Profile:"))) {
            inProfiles = false;
            card.active = line.mid(line.indexOf(QLatin1Char(':')) + 1).trimmed();
        } else if (inProfiles && !card.name.isEmpty()) {
            const qsizetype colon = line.indexOf(QLatin1String(": "));
            if (colon < 0)
                continue;
            const QString name = line.left(colon);
            if (!name.startsWith(QLatin1String("output:")) || !line.contains(QLatin1String("available: yes")) ||
                name.contains(QLatin1String("surround")) || name.contains(QLatin1Char('+')))
                continue;
            const qsizetype end = line.indexOf(sinksMark, colon);
            const QString description = line.mid(colon + 2, end < 0 ? -1 : end - colon - 2).trimmed();
            card.offered.append({card.name, name, description});
        }
    }
    card.closeInto(result);
    return result;
}

} // namespace zl
