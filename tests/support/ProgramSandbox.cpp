#include "ProgramSandbox.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QJsonDocument>

#include <sys/stat.h>
#include <unistd.h>

namespace {
constexpr uid_t kNobody = 65534;
}

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
    writeConfigBytes(QJsonDocument(config).toJson());
}

void ProgramSandbox::writeConfigBytes(const QByteArray& bytes)
{
    QDir().mkpath(QFileInfo(configFile()).absolutePath());
    QFile file(configFile());
    if (file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        file.write(bytes);
    file.close();
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
