#pragma once

#include <QList>
#include <QObject>
#include <QStringList>

#include <functional>
#include <mutex>

class QThread;

namespace zl::hw {

class Dv3000;

// Owner of every vocoder: local DV3000 sticks (FTDI serial ports), remote AMBEservers and
// the MD380 software vocoder, all living on the one "dv3000-worker" thread. Voice modes
// lease a chip configured for a rate and give it back; the lease is a plain pointer.
// What the pool knows of each chip it learns from the chip's queued signals, so no call
// here reads a chip's own members across threads, and none waits for the worker.
class Dv3000Pool : public QObject {
    Q_OBJECT

public:
    static Dv3000Pool* instance();

    explicit Dv3000Pool(QObject* parent = nullptr);
    ~Dv3000Pool() override;

    // Reconciles the chips with the FTDI ports and the hardware settings; main thread. A
    // chip that goes while it is lent stays alive until its lease comes back.
    void rescan();
    // The best free chip (stick, then server, then software), or null. Its rate is set on
    // the worker before anything the caller posts to it afterwards.
    Dv3000* acquire(int rate);
    void release(Dv3000* chip);
    // The chip itself while it works. One that has failed goes back, and the next free chip
    // (the software vocoder at last) is lent at the rate instead, or null if there is none.
    Dv3000* replaceIfBroken(Dv3000* chip, int rate);
    // Sets the rate on the first ready chip ahead of time, without lending it.
    void prewarm(int rate);
    int readyCount() const;
    // Chips being probed or in use, whatever their state.
    int chipCount() const;
    int leasedCount() const;
    // The port, server ("udp://host:port") or "sw://md380" the chip was made for.
    QString locationOf(const Dv3000* chip) const;
    // What the settings show of a chip, from its last signals.
    struct ChipStatus {
        QString location;
        QString productId; // empty until the chip has answered
        QString failure;   // why it stopped working; empty while it works
        bool leased = false;
    };
    QList<ChipStatus> chipStatuses() const;
    // The "dv3000-worker" thread, home of every chip and of the objects that talk to them.
    QThread* workerThread() const { return worker; }

    // The serial ports that may hold a stick, disabled ones included.
    QStringList candidatePorts() const { return portLister(); }
    // Where FTDI ports come from: the system locations of vendor 0x0403 ports by default.
    // Tests hand in pseudo-terminals.
    void setPortLister(std::function<QStringList()> lister);
    // Product-id retry interval of chips added from now on; tests shorten it.
    void setProbeInterval(int ms) { probeIntervalMs = ms; }

signals:
    void changed();
    void chipDetected(zl::hw::Dv3000* chip, const QString& productId, const QString& version, const QString& location);
    void chipFailed(zl::hw::Dv3000* chip, const QString& reason);

private:
    enum Kind { LocalSerial = 0, RemoteUdp = 1, Software = 2 };
    struct Chip {
        Dv3000* device = nullptr;
        QString location;
        Kind kind = LocalSerial;
        bool ready = false;  // answered its product-id request
        bool broken = false; // reported a failure; replaced at the next rescan
        bool leased = false;
        QString productId;
        QString failure;
    };
    Chip* find(const Dv3000* chip);
    const Chip* find(const Dv3000* chip) const;
    Dv3000* addChip(const QString& where, Kind kind, const QString& failureWords);
    void markBroken(Dv3000* chip, const QString& reason);

    // A std mutex, which the thread sanitizer sees: QtCore's own locks are not instrumented.
    mutable std::recursive_mutex mutex;
    QList<Chip> chips;
    // Chips dropped by a rescan while lent: deleted when they come back.
    QList<Dv3000*> retiring;
    QThread* worker = nullptr;
    std::function<QStringList()> portLister;
    int probeIntervalMs = 200;
};

} // namespace zl::hw
