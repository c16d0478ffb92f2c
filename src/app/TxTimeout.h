#pragma once

#include <QObject>
#include <QString>

class QTimer;

namespace zl {

// Ends a transmission that runs too long (a stuck key, a sleeping operator): a warning ten seconds
// before the limit, then the end. The limit is general.tx_timeout_s, 180 s unless set; 0 turns it off.
class TxTimeout : public QObject {
    Q_OBJECT

public:
    static constexpr int kDefaultSeconds = 180;
    static constexpr int kWarningSeconds = 10;

    explicit TxTimeout(QObject* parent = nullptr);
    // Arms the limit for a transmission that starts now.
    void start();
    void stop();
    bool running() const;

    // Tests let a second pass in a few milliseconds.
    void setTimeUnitForTests(int msPerSecond) { msPerSecond_ = msPerSecond; }

signals:
    void warning();
    void expired(const QString& statusLine);

private:
    QTimer* warningTimer;
    QTimer* limitTimer;
    int limitSeconds = kDefaultSeconds;
    int msPerSecond_ = 1000;
};

} // namespace zl
