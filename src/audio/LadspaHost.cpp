#include "LadspaHost.h"

#include "LadspaInstance.h"

#include <QDebug>
#include <QDir>
#include <QHash>
#include <QSet>

#include <algorithm>
#include <cmath>
#include <dlfcn.h>
#include <functional>
#include <signal.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

namespace zl::audio {

namespace {

constexpr unsigned long kRate = 8000;
constexpr int kTrialMs = 2000;

// Exit codes of the trial run.
constexpr int kTrialNoInstance = 2;
constexpr int kTrialNoAudioPath = 3;

// Calls visit(path, handle, entry point) for every loadable plug-in library in search order,
// closing each afterwards; visit returns true to end the walk.
void forEachLibrary(const std::function<bool(const QString&, void*, LADSPA_Descriptor_Function)>& visit)
{
    for (const QString& folder : LadspaHost::searchPath()) {
        const QDir dir(folder);
        for (const QString& file : dir.entryList({QStringLiteral("*.so")}, QDir::Files, QDir::Name)) {
            const QString path = dir.filePath(file);
            void* handle = dlopen(QFile::encodeName(path).constData(), RTLD_NOW | RTLD_LOCAL);
            if (!handle)
                continue;
            auto entry = reinterpret_cast<LADSPA_Descriptor_Function>(dlsym(handle, "ladspa_descriptor"));
            const bool done = entry && visit(path, handle, entry);
            dlclose(handle);
            if (done)
                return;
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

// Runs the plug-in once in a child process: instantiate, a block of a tone, clean-up. The
// verdict is kept for the life of the program, so each plug-in is tried once.
bool survivesTrial(const QString& path, const QByteArray& label, const QList<float>& ctl)
{
    static QHash<QString, bool> verdicts;
    const QString key = path + QLatin1Char('\n') + QString::fromUtf8(label);
    if (auto it = verdicts.constFind(key); it != verdicts.constEnd())
        return *it;
    const pid_t child = fork();
    if (child == 0) {
        // Crash handlers of the parent (a debugger hook, a log flush) must not run here: the
        // child is meant to die quietly so that the parent can read how.
        for (int sig : {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT})
            signal(sig, SIG_DFL);
        int why = 0;
        std::unique_ptr<LadspaInstance> plugin = instantiate(path, label, ctl, &why);
        if (!plugin)
            _exit(why);
        float block[160];
        for (int i = 0; i < 160; ++i)
            block[i] = 8000.0f * std::sin(float(i) * 0.3f);
        plugin->run(block, 160);
        plugin.reset();
        _exit(0);
    }
    int status = 0;
    bool finished = false;
    if (child > 0) {
        const timespec beat{0, 2'000'000};
        for (int waited = 0; waited < kTrialMs && !finished; waited += 2) {
            finished = waitpid(child, &status, WNOHANG) == child;
            if (!finished)
                nanosleep(&beat, nullptr);
        }
        if (!finished) {
            kill(child, SIGKILL);
            waitpid(child, &status, 0);
        }
    }
    const bool ok = finished && WIFEXITED(status) && WEXITSTATUS(status) == 0;
    if (child < 0)
        qWarning() << "LadspaHost: no child process for a trial run of" << label << "— skipped";
    else if (!finished)
        qWarning() << "LadspaHost:" << label << "in" << path << "hung in a trial run — skipped";
    else if (WIFSIGNALED(status))
        qWarning() << "LadspaHost:" << label << "in" << path << "crashed in a trial run (signal" << WTERMSIG(status)
                   << ") — skipped";
    else if (WEXITSTATUS(status) == kTrialNoAudioPath)
        qWarning() << "LadspaHost:" << label << "has no audio input and output to run mono — skipped";
    else if (!ok)
        qWarning() << "LadspaHost:" << label << "could not be instantiated — skipped";
    verdicts.insert(key, ok);
    return ok;
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
    forEachLibrary([&](const QString&, void*, LADSPA_Descriptor_Function entry) {
        for (unsigned long i = 0;; ++i) {
            const LADSPA_Descriptor* d = entry(i);
            if (!d)
                break;
            if (!d->Label || labels.contains(QString::fromUtf8(d->Label)))
                continue;
            LadspaPluginInfo info;
            info.label = QString::fromUtf8(d->Label);
            info.name = d->Name ? QString::fromUtf8(d->Name) : info.label;
            for (unsigned long port = 0; port < d->PortCount; ++port) {
                const LADSPA_PortDescriptor kind = d->PortDescriptors[port];
                if (LADSPA_IS_PORT_AUDIO(kind))
                    ++(LADSPA_IS_PORT_INPUT(kind) ? info.audioIns : info.audioOuts);
                else if (LADSPA_IS_PORT_CONTROL(kind) && LADSPA_IS_PORT_INPUT(kind))
                    info.controls.append(controlOf(d, port));
            }
            labels.insert(info.label);
            catalogue.append(info);
        }
        return false;
    });
    std::stable_sort(catalogue.begin(), catalogue.end(),
                     [](const LadspaPluginInfo& a, const LadspaPluginInfo& b) { return a.name < b.name; });
    return catalogue;
}

std::unique_ptr<LadspaInstance> LadspaHost::createInstance(const QString& label, const QList<float>& ctl)
{
    // A receive chain is made at a peer's first frame: opening every library of the search
    // path then would hold up the audio, so where a label lives is remembered.
    static QHash<QString, QString> fileOf;
    const QByteArray wanted = label.toUtf8();
    const QString key = searchPath().join(QLatin1Char(':')) + QLatin1Char('\n') + label;
    QString path = fileOf.value(key);
    if (path.isEmpty()) {
        forEachLibrary([&](const QString& file, void*, LADSPA_Descriptor_Function entry) {
            if (findLabel(entry, wanted))
                path = file;
            return !path.isEmpty();
        });
    }
    if (path.isEmpty()) {
        qInfo() << "LadspaHost: no plug-in labelled" << label << "in" << searchPath();
        return nullptr;
    }
    fileOf.insert(key, path);
    if (!survivesTrial(path, wanted, ctl))
        return nullptr;
    int why = 0;
    return instantiate(path, wanted, ctl, &why);
}

} // namespace zl::audio
