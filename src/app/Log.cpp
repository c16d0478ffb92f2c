#include "Log.h"

#include "Config.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QJsonObject>

#include <spdlog/sinks/ansicolor_sink.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>

#include <memory>
#include <vector>

namespace zl {

namespace {

std::shared_ptr<spdlog::logger> g_logger;
QtMessageHandler g_previousHandler = nullptr;

spdlog::level::level_enum levelFor(QtMsgType type)
{
    switch (type) {
    case QtDebugMsg:
        return spdlog::level::debug;
    case QtInfoMsg:
        return spdlog::level::info;
    case QtWarningMsg:
        return spdlog::level::warn;
    case QtCriticalMsg:
        return spdlog::level::err;
    case QtFatalMsg:
        return spdlog::level::critical;
    }
    return spdlog::level::info;
}

void messageHandler(QtMsgType type, const QMessageLogContext& context, const QString& message)
{
    if (!g_logger) {
        if (g_previousHandler)
            g_previousHandler(type, context, message);
        return;
    }
    const QByteArray utf8 = message.toUtf8();
    g_logger->log(levelFor(type), "{}", std::string_view(utf8.constData(), size_t(utf8.size())));
}

} // namespace

QStringList logFolders(const QString& logDir, const QString& appDirPath)
{
    QStringList folders;
    if (!logDir.isEmpty())
        folders << QDir(logDir).absolutePath();
    QString base = QDir(appDirPath.isEmpty() ? QDir::currentPath() : appDirPath).absolutePath();
    // Running from a build tree puts the logs beside it, not inside it.
    if (QFileInfo(base).fileName() == QLatin1String("build"))
        base = QFileInfo(base).path();
    folders << QDir(base).filePath(QStringLiteral("log"));
    // An installed program usually cannot write beside itself: the user's state folder then.
    QString state = qEnvironmentVariable("XDG_STATE_HOME");
    if (state.isEmpty())
        state = QDir::homePath() + QStringLiteral("/.local/state");
    folders << QDir(state + QStringLiteral("/zephyrlake/log")).absolutePath();
    return folders;
}

void pruneLogs(const QString& folder, int keep)
{
    QDir dir(folder);
    // The names carry the start time, so the name order is the age order.
    const QStringList logs = dir.entryList({QStringLiteral("zl-*.log")}, QDir::Files, QDir::Name | QDir::Reversed);
    for (qsizetype i = keep; i < logs.size(); ++i)
        dir.remove(logs.at(i));
}

void initLog()
{
    const QJsonObject general = Config::instance().section(QStringLiteral("general"));
    const bool logEnabled = general.value(QStringLiteral("log_enabled")).toBool(true);
    const QString logDir = general.value(QStringLiteral("log_dir")).toString();
    const QString stamp = QDateTime::currentDateTime().toString(QStringLiteral("yyMMdd-HHmmss"));

    std::vector<spdlog::sink_ptr> sinks;
    auto console = std::make_shared<spdlog::sinks::ansicolor_stdout_sink_mt>(spdlog::color_mode::automatic);
    console->set_pattern("[%H:%M:%S.%e] [%^%l%$] %v");
    sinks.push_back(console);

    // The first folder that takes a file wins; a program that cannot log still runs.
    QString fileName;
    QStringList failed;
    if (logEnabled) {
        for (const QString& folder : logFolders(logDir, QCoreApplication::applicationDirPath())) {
            const QString candidate = folder + QStringLiteral("/zl-") + stamp + QStringLiteral(".log");
            try {
                if (!QDir().mkpath(folder))
                    throw spdlog::spdlog_ex("cannot create the folder");
                auto file = std::make_shared<spdlog::sinks::basic_file_sink_mt>(candidate.toStdString(), false);
                file->set_pattern("[%H:%M:%S.%e] [%l] %v");
                sinks.push_back(file);
                fileName = candidate;
                pruneLogs(folder, kKeptLogFiles);
                break;
            } catch (const spdlog::spdlog_ex&) {
                failed << folder;
            }
        }
    }

    auto logger = std::make_shared<spdlog::logger>("zl", sinks.begin(), sinks.end());
    logger->set_level(spdlog::level::debug);
    logger->flush_on(spdlog::level::info);
    spdlog::register_logger(logger);
    spdlog::set_default_logger(logger);
    g_logger = logger;

    if (!fileName.isEmpty())
        logger->info("=== zephyrlake log start, file={} ===", fileName.toStdString());
    else if (logEnabled)
        logger->info("=== zephyrlake log start (console only) ===");
    else
        logger->info("=== zephyrlake log start (file disabled in settings) ===");
    if (!failed.isEmpty()) {
        logger->warn("Log: cannot write a log file in {}{}", failed.join(QStringLiteral(", ")).toStdString(),
                     fileName.isEmpty() ? " — logging to the console only" : "");
    }

    g_previousHandler = qInstallMessageHandler(messageHandler);
}

} // namespace zl
