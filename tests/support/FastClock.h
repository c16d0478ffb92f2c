#pragma once

#include <QDateTime>
#include <QElapsedTimer>

// A clock that runs `speedup` times faster than the wall clock, for clients whose timers are
// shortened by the same factor: 30 s of protocol time pass in 30/speedup real seconds.
class FastClock {
public:
    explicit FastClock(int factor) : speedup(factor) { elapsed.start(); }
    qint64 now() const { return base + elapsed.elapsed() * speedup; }
    int factor() const { return speedup; }

private:
    int speedup;
    qint64 base = QDateTime::currentMSecsSinceEpoch();
    QElapsedTimer elapsed;
};
