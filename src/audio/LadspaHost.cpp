#include "LadspaHost.h"

#include "LadspaInstance.h"

#include <QDebug>
#include <QDir>
#include <QElapsedTimer>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <dlfcn.h>
#include <fcntl.h>
#include <functional>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

namespace zl::audio {

namespace {

constexpr unsigned long kRate = 8000;
constexpr int kTrialMs = 2000;
constexpr int kWalkMs = 10000;
// Libraries that crash while loading are left out one per walk; more than this many is a
// broken installation, not a broken plug-in.
constexpr int kWalkAttempts = 6;

// Exit codes of the trial run.
constexpr int kTrialNoInstance = 2;
constexpr int kTrialNoAudioPath = 3;

// Calls visit(path, handle, entry point) for every loadable plug-in library in search order,
// closing each afterwards; opening(path) comes before each is opened.
void forEachLibrary(const QSet<QString>& skip, const std::function<void(const QString&)>& opening,
                    const std::function<void(const QString&, LADSPA_Descriptor_Function)>& visit)
{
    for (const QString& folder : LadspaHost::searchPath()) {
        const QDir dir(folder);
        for (const QString& file : dir.entryList({QStringLiteral("*.so")}, QDir::Files, QDir::Name)) {
            const QString path = dir.filePath(file);
            if (skip.contains(path))
                continue;
            opening(path);
            void* handle = dlopen(QFile::encodeName(path).constData(), RTLD_NOW | RTLD_LOCAL);
            if (!handle)
                continue;
            if (auto entry = reinterpret_cast<LADSPA_Descriptor_Function>(dlsym(handle, "ladspa_descriptor")))
                visit(path, entry);
            dlclose(handle);
        }
    }
}

const LADSPA_Descriptor* findLabel(LADSPA_Descriptor_Function entry, const QByteArray& label)
{
    for (unsigned long i = 0;; ++i) {
        const LADSPA_Descriptor* d = entry(i);
        if (!d)
            return nullptr;
        if (d->Label && label == d->Label)
            return d;
    }
}

// Loads the plug-in from this file and connects it; null if that fails.
std::unique_ptr<LadspaInstance> instantiate(const QString& path, const QByteArray& label, const QList<float>& ctl,
                                            int* why)
{
    void* handle = dlopen(QFile::encodeName(path).constData(), RTLD_NOW | RTLD_LOCAL);
    auto entry = handle ? reinterpret_cast<LADSPA_Descriptor_Function>(dlsym(handle, "ladspa_descriptor")) : nullptr;
    const LADSPA_Descriptor* descriptor = entry ? findLabel(entry, label) : nullptr;
    LADSPA_Handle instance = descriptor ? descriptor->instantiate(descriptor, kRate) : nullptr;
    if (!instance) {
        if (handle)
            dlclose(handle);
        *why = kTrialNoInstance;
        return nullptr;
    }
    auto plugin = std::make_unique<LadspaInstance>(handle, descriptor, instance);
    if (!plugin->connect(ctl)) {
        *why = kTrialNoAudioPath;
        return nullptr;
    }
    return plugin;
}

// Runs work in a child process, which writes what it has to say to the descriptor given, and
// waits up to timeoutMs for its end. Plug-ins are third-party code: whatever one does in the
// child, crash or hang, costs the program nothing but the time waited. status is waitpid's,
// or -1 when the child had to be killed or could not be started.
QByteArray runChild(const std::function<void(int)>& work, int timeoutMs, int* status)
{
    *status = -1;
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0)
        return {};
    const pid_t child = fork();
    if (child == 0) {
        // Crash handlers of the parent (a debugger hook, a log flush) must not run here: the
        // child is meant to die quietly so that the parent can read how.
        for (int sig : {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT})
            signal(sig, SIG_DFL);
        close(fds[0]);
        work(fds[1]);
        _exit(0);
    }
    close(fds[1]);
    QByteArray said;
    QElapsedTimer clock;
    clock.start();
    bool ended = child < 0;
    while (!ended && clock.elapsed() < timeoutMs) {
        pollfd in{fds[0], POLLIN, 0};
        if (poll(&in, 1, int(timeoutMs - clock.elapsed())) <= 0)
            continue;
        char chunk[4096];
        const ssize_t got = read(fds[0], chunk, sizeof chunk);
        if (got > 0)
            said.append(chunk, got);
        ended = got == 0 || (got < 0 && errno != EINTR);
    }
    close(fds[0]);
    if (child < 0)
        return said;
    if (!ended)
        kill(child, SIGKILL);
    int how = 0;
    waitpid(child, &how, 0);
    if (ended)
        *status = how;
    return said;
}

void writeAll(int fd, const QByteArray& bytes)
{
    for (qsizetype at = 0; at < bytes.size();) {
        const ssize_t put = write(fd, bytes.constData() + at, size_t(bytes.size() - at));
        if (put <= 0)
            return;
        at += put;
    }
}

QString reason(int status)
{
    if (status == -1)
        return QStringLiteral("did not finish");
    if (WIFSIGNALED(status))
        return QStringLiteral("crashed (signal %1)").arg(WTERMSIG(status));
    return QStringLiteral("failed");
}

// Runs the plug-in once in a child process: instantiate, a block of a tone, clean-up. The
// verdict is kept for the life of the program, so each plug-in is tried once.
bool survivesTrial(const QString& path, const QByteArray& label, const QList<float>& ctl)
{
    static QHash<QString, bool> verdicts;
    const QString key = path + QLatin1Char('\n') + QString::fromUtf8(label);
    if (auto it = verdicts.constFind(key); it != verdicts.constEnd())
        return *it;
    int status = 0;
    runChild(
        [&](int) {
            int why = 0;
            std::unique_ptr<LadspaInstance> plugin = instantiate(path, label, ctl, &why);
            if (!plugin)
                _exit(why);
            float block[160];
            for (int i = 0; i < 160; ++i)
                block[i] = 8000.0f * std::sin(float(i) * 0.3f);
            plugin->run(block, 160);
        },
        kTrialMs, &status);
    const bool ok = status == 0;
    if (status != -1 && WIFEXITED(status) && WEXITSTATUS(status) == kTrialNoAudioPath)
        qWarning() << "LadspaHost:" << label << "has no audio input and output to run mono — skipped";
    else if (status != -1 && WIFEXITED(status) && !ok)
        qWarning() << "LadspaHost:" << label << "could not be instantiated — skipped";
    else if (!ok)
        qWarning().noquote() << "LadspaHost:" << label << "in" << path << reason(status) << "in a trial run — skipped";
    verdicts.insert(key, ok);
    return ok;
}

QJsonObject toJson(const LadspaPluginInfo& p)
{
    QJsonArray controls;
    for (const LadspaControl& c : p.controls)
        controls.append(QJsonObject{{"name", c.name},
                                    {"lower", c.lower},
                                    {"upper", c.upper},
                                    {"default", c.defaultValue},
                                    {"integer", c.integer},
                                    {"toggled", c.toggled}});
    return {{"label", p.label}, {"name", p.name}, {"ins", p.audioIns}, {"outs", p.audioOuts}, {"controls", controls}};
}

LadspaPluginInfo fromJson(const QJsonObject& o)
{
    LadspaPluginInfo p{o["label"].toString(), o["name"].toString(), {}, o["ins"].toInt(), o["outs"].toInt()};
    for (const QJsonValue& v : o["controls"].toArray()) {
        const QJsonObject c = v.toObject();
        p.controls.append({c["name"].toString(), float(c["lower"].toDouble()), float(c["upper"].toDouble()),
                           float(c["default"].toDouble()), c["integer"].toBool(), c["toggled"].toBool()});
    }
    return p;
}

LadspaPluginInfo infoOf(const LADSPA_Descriptor* d)
{
    LadspaPluginInfo info;
    info.label = QString::fromUtf8(d->Label);
    info.name = d->Name ? QString::fromUtf8(d->Name) : info.label;
    for (unsigned long port = 0; port < d->PortCount; ++port) {
        const LADSPA_PortDescriptor kind = d->PortDescriptors[port];
        if (LADSPA_IS_PORT_AUDIO(kind))
            ++(LADSPA_IS_PORT_INPUT(kind) ? info.audioIns : info.audioOuts);
        else if (LADSPA_IS_PORT_CONTROL(kind) && LADSPA_IS_PORT_INPUT(kind))
            info.controls.append(LadspaHost::controlOf(d, port));
    }
    return info;
}

// Every plug-in of the search path with the file it is in, in search order, read by a child
// process: a library that crashes while it loads is named by the child's last word, and the
// walk is made again without it.
QList<QPair<QString, LadspaPluginInfo>> walk()
{
    QSet<QString> skip;
    for (int attempt = 0; attempt < kWalkAttempts; ++attempt) {
        int status = 0;
        const QByteArray said = runChild(
            [&skip](int fd) {
                forEachLibrary(
                    skip, [fd](const QString& path) { writeAll(fd, "F" + path.toUtf8() + '\n'); },
                    [fd](const QString&, LADSPA_Descriptor_Function entry) {
                        for (unsigned long i = 0; const LADSPA_Descriptor* d = entry(i); ++i) {
                            if (d->Label)
                                writeAll(fd,
                                         "P" + QJsonDocument(toJson(infoOf(d))).toJson(QJsonDocument::Compact) + '\n');
                        }
                    });
            },
            kWalkMs, &status);
        QList<QPair<QString, LadspaPluginInfo>> found;
        QString file;
        for (const QByteArray& line : said.split('\n')) {
            if (line.startsWith('F'))
                file = QString::fromUtf8(line.mid(1));
            else if (line.startsWith('P'))
                found.append({file, fromJson(QJsonDocument::fromJson(line.mid(1)).object())});
        }
        if (status == 0)
            return found;
        qWarning().noquote() << "LadspaHost:" << file << reason(status) << "while loading — skipped";
        if (file.isEmpty() || skip.contains(file))
            break;
        skip.insert(file);
    }
    return {};
}

} // namespace

QStringList LadspaHost::searchPath()
{
    QStringList folders = qEnvironmentVariable("LADSPA_PATH").split(QLatin1Char(':'), Qt::SkipEmptyParts);
    folders << QStringLiteral("/usr/lib/ladspa") << QStringLiteral("/usr/local/lib/ladspa");
    return folders;
}

LadspaControl LadspaHost::controlOf(const LADSPA_Descriptor* descriptor, unsigned long port)
{
    const LADSPA_PortRangeHint& hint = descriptor->PortRangeHints[port];
    const LADSPA_PortRangeHintDescriptor h = hint.HintDescriptor;
    LadspaControl c;
    c.name = QString::fromUtf8(descriptor->PortNames ? descriptor->PortNames[port] : nullptr);
    const float scale = LADSPA_IS_HINT_SAMPLE_RATE(h) ? float(kRate) : 1.0f;
    c.lower = LADSPA_IS_HINT_BOUNDED_BELOW(h) ? hint.LowerBound * scale : 0.0f;
    c.upper = LADSPA_IS_HINT_BOUNDED_ABOVE(h) ? hint.UpperBound * scale : 1.0f;
    c.integer = LADSPA_IS_HINT_INTEGER(h);
    c.toggled = LADSPA_IS_HINT_TOGGLED(h);
    // Linear weights also for logarithmic ports: the editor offers a start, not a sound.
    switch (h & LADSPA_HINT_DEFAULT_MASK) {
    case LADSPA_HINT_DEFAULT_LOW:
        c.defaultValue = 0.75f * c.lower + 0.25f * c.upper;
        break;
    case LADSPA_HINT_DEFAULT_MIDDLE:
        c.defaultValue = 0.5f * (c.lower + c.upper);
        break;
    case LADSPA_HINT_DEFAULT_HIGH:
        c.defaultValue = 0.25f * c.lower + 0.75f * c.upper;
        break;
    case LADSPA_HINT_DEFAULT_MAXIMUM:
        c.defaultValue = c.upper;
        break;
    case LADSPA_HINT_DEFAULT_0:
        c.defaultValue = 0.0f;
        break;
    case LADSPA_HINT_DEFAULT_1:
        c.defaultValue = 1.0f;
        break;
    case LADSPA_HINT_DEFAULT_100:
        c.defaultValue = 100.0f;
        break;
    case LADSPA_HINT_DEFAULT_440:
        c.defaultValue = 440.0f;
        break;
    default:
        c.defaultValue = c.lower;
        break;
    }
    return c;
}

QList<LadspaPluginInfo> LadspaHost::scanPlugins()
{
    QList<LadspaPluginInfo> catalogue;
    QSet<QString> labels;
    for (const auto& [file, info] : walk()) {
        if (!labels.contains(info.label)) {
            labels.insert(info.label);
            catalogue.append(info);
        }
    }
    std::stable_sort(catalogue.begin(), catalogue.end(),
                     [](const LadspaPluginInfo& a, const LadspaPluginInfo& b) { return a.name < b.name; });
    return catalogue;
}

std::unique_ptr<LadspaInstance> LadspaHost::createInstance(const QString& label, const QList<float>& ctl)
{
    // A receive chain is made at a peer's first frame: walking the search path then would hold
    // up the audio, so where each label lives is remembered from the last walk.
    static QHash<QString, QString> fileOf;
    const QString folders = searchPath().join(QLatin1Char(':')) + QLatin1Char('\n');
    QString path = fileOf.value(folders + label);
    if (path.isEmpty()) {
        const QList<QPair<QString, LadspaPluginInfo>> found = walk();
        for (auto it = found.crbegin(); it != found.crend(); ++it)
            fileOf.insert(folders + it->second.label, it->first);
        path = fileOf.value(folders + label);
    }
    if (path.isEmpty()) {
        qInfo() << "LadspaHost: no plug-in labelled" << label << "in" << searchPath();
        return nullptr;
    }
    const QByteArray wanted = label.toUtf8();
    if (!survivesTrial(path, wanted, ctl))
        return nullptr;
    int why = 0;
    return instantiate(path, wanted, ctl, &why);
}

} // namespace zl::audio
