#include "Log.h"

#include "Config.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
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

QString logFolder(const QString& logDir, const QString& appDirPath)
{
    if (!logDir.isEmpty()) {
        QDir dir(logDir);
        dir.mkpath(QStringLiteral("."));
        return dir.absolutePath();
    }
    QDir dir(appDirPath.isEmpty() ? QDir::currentPath() : appDirPath);
    // Running from a build tree puts the logs beside it, not inside it.
    if (dir.dirName() == QLatin1String("build"))
        dir.cdUp();
    dir.mkpath(QStringLiteral("log"));
    return QDir(dir.filePath(QStringLiteral("log"))).absolutePath();
}

void initLog()
{
    const QJsonObject general = Config::instance().section(QStringLiteral("general"));
    const bool logEnabled = general.value(QStringLiteral("log_enabled")).toBool(true);
    const QString logDir = general.value(QStringLiteral("log_dir")).toString();

    const QString folder = logFolder(logDir, QCoreApplication::applicationDirPath());
    const QString fileName = folder + QStringLiteral("/zl-") +
                             QDateTime::currentDateTime().toString(QStringLiteral("yyMMdd-HHmmss")) +
                             QStringLiteral(".log");

    std::vector<spdlog::sink_ptr> sinks;
    auto console = std::make_shared<spdlog::sinks::ansicolor_stdout_sink_mt>(spdlog::color_mode::automatic);
    console->set_pattern("[%H:%M:%S.%e] [%^%l%$] %v");
    sinks.push_back(console);
    if (logEnabled) {
        auto file = std::make_shared<spdlog::sinks::basic_file_sink_mt>(fileName.toStdString(), false);
        file->set_pattern("[%H:%M:%S.%e] [%l] %v");
        sinks.push_back(file);
    }

    auto logger = std::make_shared<spdlog::logger>("zl", sinks.begin(), sinks.end());
    logger->set_level(spdlog::level::debug);
    logger->flush_on(spdlog::level::info);
    spdlog::register_logger(logger);
    spdlog::set_default_logger(logger);
    g_logger = logger;

    if (logEnabled)
        logger->info("=== zephyrlake log start, file={} ===", fileName.toStdString());
    else
        logger->info("=== zephyrlake log start (file disabled in settings) ===");

    g_previousHandler = qInstallMessageHandler(messageHandler);
}

} // namespace zl
