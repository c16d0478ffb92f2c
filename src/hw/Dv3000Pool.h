#pragma once

#include <QHash>
#include <QList>
#include <QObject>
#include <QRecursiveMutex>
#include <QStringList>

#include <functional>

class QThread;

namespace zl::hw {

class Dv3000;

// Owner of every vocoder: local DV3000 sticks (FTDI serial ports), remote AMBEservers and
// the MD380 software vocoder, all living on the one "dv3000-worker" thread. Voice modes
// lease a chip configured for a rate and give it back; the lease is a plain pointer.
class Dv3000Pool : public QObject {
    Q_OBJECT

public:
    static Dv3000Pool* instance();

    explicit Dv3000Pool(QObject* parent = nullptr);
    ~Dv3000Pool() override;

    // Reconciles the chips with the FTDI ports and the hardware settings; main thread.
    void rescan();
    // The best free chip (stick, then server, then software) set to the rate, or null.
    // Blocks until the chip's setRate is done.
    Dv3000* acquire(int rate);
    void release(Dv3000* chip);
    // Sets the rate on the first ready chip ahead of time, without lending it.
    void prewarm(int rate);
    int readyCount() const;
    int leasedCount() const;
    // The "dv3000-worker" thread, home of every chip and of the objects that talk to them.
    QThread* workerThread() const { return worker; }

    // Where FTDI ports come from: the system locations of vendor 0x0403 ports by default.
    // Tests hand in pseudo-terminals.
    void setPortLister(std::function<QStringList()> lister);
    // Product-id retry interval of chips added from now on; tests shorten it.
    void setProbeInterval(int ms) { probeIntervalMs = ms; }

signals:
    void changed();
    void chipDetected(zl::hw::Dv3000* chip);
    void chipFailed(zl::hw::Dv3000* chip, const QString& reason);

private:
    enum Kind { LocalSerial = 0, RemoteUdp = 1, Software = 2 };
    static Kind kind(const Dv3000* chip);
    QString location(Dv3000* chip) const;
    Dv3000* addChip(const QString& where, const QString& failureWords);

    mutable QRecursiveMutex mutex;
    QList<Dv3000*> chips;
    QHash<Dv3000*, bool> leases;
    QThread* worker = nullptr;
    // The location each chip was made for, until its open on the worker has set its own.
    QHash<Dv3000*, QString> requested;
    std::function<QStringList()> portLister;
    int probeIntervalMs = 200;
};

} // namespace zl::hw
