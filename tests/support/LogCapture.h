#pragma once

#include <QStringList>
#include <QtMessageHandler>

// Records every Qt log message while it exists (and still passes them on), so that tests can
// check exact log lines and that a line was written only once.
class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    QStringList lines() const;
    // Lines that start with prefix.
    QStringList linesStartingWith(const QString& prefix) const;
    void clear();

private:
    static void handler(QtMsgType type, const QMessageLogContext& context, const QString& message);
    QtMessageHandler previous = nullptr;
};
