#include "LogCapture.h"

namespace {

LogCapture* active = nullptr;
QStringList recorded;
QtMessageHandler passOn = nullptr;

} // namespace

LogCapture::LogCapture()
{
    recorded.clear();
    active = this;
    previous = qInstallMessageHandler(&LogCapture::handler);
    passOn = previous;
}

LogCapture::~LogCapture()
{
    qInstallMessageHandler(previous);
    active = nullptr;
}

void LogCapture::handler(QtMsgType type, const QMessageLogContext& context, const QString& message)
{
    if (active)
        recorded.append(message);
    if (passOn)
        passOn(type, context, message);
}

QStringList LogCapture::lines() const
{
    return recorded;
}

QStringList LogCapture::linesStartingWith(const QString& prefix) const
{
    QStringList found;
    for (const QString& line : recorded) {
        if (line.startsWith(prefix))
            found.append(line);
    }
    return found;
}

void LogCapture::clear()
{
    recorded.clear();
}
