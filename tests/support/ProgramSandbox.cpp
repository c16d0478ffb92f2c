#include "ProgramSandbox.h"
#include "TempConfigHome.h"

#include <QDateTime>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>

#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr uid_t kNobody = 65534;

void seedDirectories(const QString& cache)
{
    // Public lists fetched a minute ago, so that the program asks no outside server for them,
    // whatever its configuration (a damaged one included).
    QDir().mkpath(cache);
    const QByteArray now = QDateTime::currentDateTime().toString(Qt::ISODate).toUtf8();
    const QList<std::pair<const char*, QByteArray>> files = {{"dmr_users.tsv", "1\tN0CALL\t\n"},
                                                             {"nxdn_users.tsv", "1\tN0CALL\t\n"},
                                                             {"dmr_repeaters.json", R"({"rptrs":[]})"},
                                                             {"nxdn_repeaters.json", R"({"rptrs":[]})"},
                                                             {"p25_repeaters.json", R"({"rptrs":[]})"},
                                                             {"dstar_repeaters.json", R"({"rptrs":[]})"},
                                                             {"bm_talkgroups.json", "[]"},
                                                             {"tgif_talkgroups.json", "[]"}};
    QJsonObject synced;
    for (const char* mode : {"M17", "DMR", "YSF", "NXDN", "D-STAR", "P25", "APRS"})
        synced.insert(QLatin1String(mode), QString::fromUtf8(now));
    QList<std::pair<QString, QByteArray>> writes = {
        {QStringLiteral("last_sync.json"), QJsonDocument(synced).toJson(QJsonDocument::Compact)}};
    for (const auto& [name, data] : files) {
        writes.append({QLatin1String(name), data});
        writes.append({QLatin1String(name) + QStringLiteral(".stamp"), now});
    }
    for (const auto& [name, data] : writes) {
        QFile file(cache + QLatin1Char('/') + name);
        if (!file.exists() && file.open(QIODevice::WriteOnly))
            file.write(data);
    }
}

} // namespace

ProgramSandbox::ProgramSandbox(const QString& binDir) : bin(binDir)
{
    if (!dir.isValid())
        return;
    QDir(dir.path()).mkpath(bin);
    valid = QFile::copy(QStringLiteral(ZL_BINARY), binaryDir() + QStringLiteral("/zephyrlake"));
    prepare();
}

std::unique_ptr<ProgramSandbox> ProgramSandbox::installed()
{
    auto box = std::unique_ptr<ProgramSandbox>(new ProgramSandbox(QStringLiteral("bin")));
    QFile::remove(box->binaryDir() + QStringLiteral("/zephyrlake"));
    QProcess install;
    install.setProcessChannelMode(QProcess::ForwardedChannels);
    install.start(QStringLiteral(ZL_CMAKE),
                  {QStringLiteral("--install"), QStringLiteral(ZL_BUILD_DIR), QStringLiteral("--prefix"), box->root()});
    box->valid = install.waitForFinished(60000) && install.exitStatus() == QProcess::NormalExit &&
                 install.exitCode() == 0 && QFile::exists(box->binaryDir() + QStringLiteral("/zephyrlake"));
    box->prepare();
    return box;
}

void ProgramSandbox::prepare()
{
    for (const char* folder : {"home", "run", "state"})
        QDir(dir.path()).mkpath(QLatin1String(folder));
    ::chmod(QFile::encodeName(dir.filePath(QStringLiteral("run"))).constData(), 0700);
    handOver(dir.path());
}

ProgramSandbox::~ProgramSandbox()
{
    kill();
}

QString ProgramSandbox::binaryDir() const
{
    return dir.filePath(bin);
}

QString ProgramSandbox::configFile() const
{
    return dir.filePath(QStringLiteral("config/xx0abc/zephyrlake/config.json"));
}

void ProgramSandbox::writeConfig(const QJsonObject& config)
{
    QJsonObject withDirectories = config;
    if (!withDirectories.contains(QStringLiteral("directories")))
        withDirectories.insert(QStringLiteral("directories"), TempConfigHome::offlineDirectories());
    writeConfigBytes(QJsonDocument(withDirectories).toJson());
}

void ProgramSandbox::writeConfigBytes(const QByteArray& bytes)
{
    QDir().mkpath(QFileInfo(configFile()).absolutePath());
    QFile file(configFile());
    if (file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        file.write(bytes);
    file.close();
    // A program given a configuration is one that runs its window.
    seedDirectories(dir.filePath(QStringLiteral("cache/xx0abc/zephyrlake")));
    handOver(dir.path());
}

void ProgramSandbox::handOver(const QString& path) const
{
    if (::geteuid() != 0)
        return;
    ::chown(QFile::encodeName(path).constData(), kNobody, kNobody);
    QDirIterator it(path, QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext())
        ::chown(QFile::encodeName(it.next()).constData(), kNobody, kNobody);
}

QProcess* ProgramSandbox::start(const QStringList& args, bool asRoot)
{
    kill();
    proc = std::make_unique<QProcess>();
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    for (const auto& [name, folder] : {std::pair{"HOME", "home"},
                                       {"XDG_CONFIG_HOME", "config"},
                                       {"XDG_CACHE_HOME", "cache"},
                                       {"XDG_RUNTIME_DIR", "run"},
                                       {"XDG_STATE_HOME", "state"}})
        env.insert(QLatin1String(name), dir.filePath(QLatin1String(folder)));
    env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    proc->setProcessEnvironment(env);
    proc->setWorkingDirectory(dir.path());

    const QString binary = binaryDir() + QStringLiteral("/zephyrlake");
    if (::geteuid() == 0 && !asRoot) {
        proc->start(QStringLiteral("setpriv"),
                    QStringList{QStringLiteral("--reuid=65534"), QStringLiteral("--regid=65534"),
                                QStringLiteral("--clear-groups"), QStringLiteral("--"), binary} +
                        args);
    } else {
        proc->start(binary, args);
    }
    proc->waitForStarted(5000);
    return proc.get();
}

void ProgramSandbox::kill()
{
    if (proc && proc->state() != QProcess::NotRunning) {
        proc->kill();
        proc->waitForFinished(5000);
    }
}

QStringList ProgramSandbox::logFiles(const QString& folder)
{
    return QDir(folder).entryList({QStringLiteral("zl-*.log")}, QDir::Files, QDir::Name);
}

QStringList ProgramSandbox::filesCreated() const
{
    QStringList files;
    const QString binary = binaryDir() + QStringLiteral("/zephyrlake");
    QDirIterator it(dir.path(), QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        if (path != binary)
            files.append(QDir(dir.path()).relativeFilePath(path));
    }
    return files;
}
