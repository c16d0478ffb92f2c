#pragma once

#include <QObject>

class QTimer;

namespace zl::aprs {

class AprsClient;

// Sends this station's position at the configured interval while the client is logged in.
// The settings are read at each beacon, so edits take effect at the next one.
class AprsBeacon : public QObject {
    Q_OBJECT

public:
    AprsBeacon(AprsClient* client, QObject* parent = nullptr);

    // Starts or stops the beacon after the configuration changed.
    void reload();
    void stop();
    // Tests shorten the first beacon's delay and the interval (seconds become this many ms).
    void setTimeUnitForTests(int msPerSecond) { msPerSecond_ = msPerSecond; }

private slots:
    void onTick();

private:
    AprsClient* client;
    QTimer* timer;
    int msPerSecond_ = 1000;
};

} // namespace zl::aprs
