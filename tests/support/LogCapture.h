#pragma once

#include <QList>
#include <QStringList>
#include <QtMessageHandler>

// Records every Qt log message of every thread, with its wall-clock time, and passes them on.
class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    QStringList lines() const;
    QStringList linesStartingWith(const QString& prefix) const;
    QStringList matching(const QString& part) const { return lines().filter(part); }
    bool contains(const QString& part) const { return !matching(part).isEmpty(); }
    // Milliseconds since the epoch of the first line containing part, 0 if none.
    qint64 timeOf(const QString& part) const;
    void clear();

private:
    static void handler(QtMsgType type, const QMessageLogContext& context, const QString& message);
    QStringList recorded;
    QList<qint64> times;
    QtMessageHandler previous = nullptr;
};
