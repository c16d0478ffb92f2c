#include "LogCapture.h"

#include <QDateTime>

#include <mutex>

namespace {

// Guards the capture in use and its lines: a capture never goes while a handler writes to it.
std::mutex lock;
LogCapture* active = nullptr;

} // namespace

LogCapture::LogCapture()
{
    const std::lock_guard guard(lock);
    active = this;
    previous = qInstallMessageHandler(&LogCapture::handler);
}

LogCapture::~LogCapture()
{
    const std::lock_guard guard(lock);
    qInstallMessageHandler(previous);
    active = nullptr;
}

void LogCapture::handler(QtMsgType type, const QMessageLogContext& context, const QString& message)
{
    QtMessageHandler passOn = nullptr;
    {
        const std::lock_guard guard(lock);
        if (!active)
            return;
        active->recorded.append(message);
        active->times.append(QDateTime::currentMSecsSinceEpoch());
        passOn = active->previous;
    }
    if (passOn)
        passOn(type, context, message);
}

QStringList LogCapture::lines() const
{
    const std::lock_guard guard(lock);
    return recorded;
}

QStringList LogCapture::linesStartingWith(const QString& prefix) const
{
    QStringList found;
    for (const QString& line : lines()) {
        if (line.startsWith(prefix))
            found.append(line);
    }
    return found;
}

qint64 LogCapture::timeOf(const QString& part) const
{
    const std::lock_guard guard(lock);
    for (qsizetype i = 0; i < recorded.size(); ++i) {
        if (recorded.at(i).contains(part))
            return times.at(i);
    }
    return 0;
}

void LogCapture::clear()
{
    const std::lock_guard guard(lock);
    recorded.clear();
    times.clear();
}
