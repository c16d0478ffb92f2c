#include "hw/Dv3000Pool.h"

#include "app/Config.h"
#include "app/ThreadHandOff.h"
#include "hw/Dv3000.h"

#include <QDebug>
#include <QJsonArray>
#include <QJsonObject>
#include <QSerialPortInfo>
#include <QSet>
#include <QThread>

namespace zl::hw {

namespace {

constexpr quint16 ftdiVendorId = 0x0403;
constexpr int defaultServerPort = 2460;
const QString softwareLocation = QStringLiteral("sw://md380");

QStringList ftdiPorts()
{
    QStringList ports;
    for (const QSerialPortInfo& info : QSerialPortInfo::availablePorts()) {
        if (info.hasVendorIdentifier() && info.vendorIdentifier() == ftdiVendorId)
            ports << info.systemLocation();
    }
    return ports;
}

} // namespace

Dv3000Pool* Dv3000Pool::instance()
{
    static Dv3000Pool pool;
    return &pool;
}

Dv3000Pool::Dv3000Pool(QObject* parent) : QObject(parent), worker(new QThread), portLister(ftdiPorts)
{
    worker->setObjectName(QStringLiteral("dv3000-worker"));
    worker->start(QThread::InheritPriority);
}

Dv3000Pool::~Dv3000Pool()
{
    // The chips go with the worker's last deferred deletions; closing them is not awaited.
    for (const Chip& chip : std::as_const(chips))
        chip.device->deleteLater();
    for (Dv3000* chip : std::as_const(retiring))
        chip->deleteLater();
    chips.clear();
    retiring.clear();
    worker->quit();
    // Deleting a thread that still runs would abort the program: one stuck in a chip's
    // blocking call is left to the end of the process instead.
    if (!worker->wait(5000)) {
        qWarning() << "Dv3000Pool: the dv3000-worker thread did not stop within 5 s";
        return;
    }
    delete worker;
}

void Dv3000Pool::setPortLister(std::function<QStringList()> lister)
{
    portLister = std::move(lister);
}

Dv3000Pool::Chip* Dv3000Pool::find(const Dv3000* chip)
{
    for (Chip& each : chips) {
        if (each.device == chip)
            return &each;
    }
    return nullptr;
}

const Dv3000Pool::Chip* Dv3000Pool::find(const Dv3000* chip) const
{
    return const_cast<Dv3000Pool*>(this)->find(chip);
}

QString Dv3000Pool::locationOf(const Dv3000* chip) const
{
    const std::lock_guard lock(mutex);
    const Chip* each = find(chip);
    return each ? each->location : QString();
}

Dv3000* Dv3000Pool::acquire(int rate)
{
    Dv3000* winner = nullptr;
    {
        const std::lock_guard lock(mutex);
        for (int k = LocalSerial; k <= Software && !winner; ++k) {
            for (Chip& chip : chips) {
                if (chip.kind == k && chip.ready && !chip.broken && !chip.leased) {
                    chip.leased = true;
                    winner = chip.device;
                    break;
                }
            }
        }
    }
    if (!winner)
        return nullptr;
    // On the worker the rate is set at once; from elsewhere it is queued, and so runs before
    // any frame the caller posts after this. A chip already at the rate sends nothing. One
    // that refuses the rate is of no use to anybody: it is reported and not lent again.
    const QString refusal = QStringLiteral("rate %1 refused").arg(rate);
    if (QThread::currentThread() == winner->thread()) {
        if (!winner->setRate(rate)) {
            markBroken(winner, refusal);
            release(winner);
            return nullptr;
        }
    } else {
        zl::postTo(winner, [this, winner, rate, refusal] {
            if (!winner->setRate(rate))
                zl::postTo(this, [this, winner, refusal] { markBroken(winner, refusal); });
        });
    }
    emit changed();
    return winner;
}

void Dv3000Pool::release(Dv3000* chip)
{
    if (!chip)
        return;
    {
        const std::lock_guard lock(mutex);
        if (retiring.removeOne(chip)) {
            chip->deleteLater();
        } else {
            Chip* each = find(chip);
            if (!each || !each->leased)
                return;
            each->leased = false;
        }
    }
    emit changed();
}

Dv3000* Dv3000Pool::replaceIfBroken(Dv3000* chip, int rate)
{
    {
        const std::lock_guard lock(mutex);
        const Chip* each = find(chip);
        if (!each || !each->broken)
            return chip;
    }
    const QString was = locationOf(chip);
    release(chip);
    Dv3000* next = acquire(rate);
    qInfo().noquote() << "Dv3000Pool: the lease of failed" << was << "moves to"
                      << (next ? locationOf(next) : QStringLiteral("no other chip"));
    return next;
}

void Dv3000Pool::prewarm(int rate)
{
    const std::lock_guard lock(mutex);
    for (const Chip& chip : std::as_const(chips)) {
        if (chip.ready && !chip.broken) {
            qInfo().noquote() << "Dv3000Pool::prewarm: pre-caching rate" << rate << "on" << chip.location;
            Dv3000* device = chip.device;
            zl::postTo(device, [device, rate] { device->setRate(rate); });
            return;
        }
    }
    qInfo() << "Dv3000Pool::prewarm: no hardware chip detected yet, skipping";
}

int Dv3000Pool::readyCount() const
{
    const std::lock_guard lock(mutex);
    int n = 0;
    for (const Chip& chip : chips) {
        if (chip.ready && !chip.broken)
            ++n;
    }
    return n;
}

QList<Dv3000Pool::ChipStatus> Dv3000Pool::chipStatuses() const
{
    const std::lock_guard lock(mutex);
    QList<ChipStatus> statuses;
    for (const Chip& chip : chips)
        statuses.append({chip.location, chip.productId, chip.failure, chip.leased});
    return statuses;
}

int Dv3000Pool::chipCount() const
{
    const std::lock_guard lock(mutex);
    return int(chips.size());
}

int Dv3000Pool::leasedCount() const
{
    const std::lock_guard lock(mutex);
    int n = int(retiring.size());
    for (const Chip& chip : chips) {
        if (chip.leased)
            ++n;
    }
    return n;
}

Dv3000* Dv3000Pool::addChip(const QString& where, Kind kind, const QString& failureWords)
{
    auto* chip = new Dv3000;
    chip->setProbeInterval(probeIntervalMs);
    chips.append({chip, where, kind});
    chip->moveToThread(worker);
    connect(chip, &Dv3000::detected, this, [this, chip](const QString& productId, const QString& version) {
        QString location;
        {
            const std::lock_guard lock(mutex);
            Chip* each = find(chip);
            if (!each)
                return;
            each->ready = true;
            each->broken = false;
            each->productId = productId;
            each->failure.clear();
            location = each->location;
        }
        emit chipDetected(chip, productId, version, location);
        emit changed();
    });
    connect(chip, &Dv3000::failed, this, [this, chip, failureWords](const QString& reason) {
        qInfo().noquote() << failureWords << reason;
        markBroken(chip, reason);
    });
    return chip;
}

void Dv3000Pool::markBroken(Dv3000* chip, const QString& reason)
{
    {
        const std::lock_guard lock(mutex);
        Chip* each = find(chip);
        if (!each)
            return;
        each->ready = false;
        each->broken = true;
        each->failure = reason;
    }
    emit chipFailed(chip, reason);
    emit changed();
}

void Dv3000Pool::rescan()
{
    const std::lock_guard lock(mutex);
    const QJsonObject hw = Config::instance().section(QStringLiteral("hardware"));

    QSet<QString> disabled;
    for (const QJsonValue& v : hw.value(QStringLiteral("ambe_disabled_ports")).toArray())
        disabled.insert(v.toString());
    QStringList wantedPorts;
    for (const QString& port : portLister()) {
        if (!disabled.contains(port) && !wantedPorts.contains(port))
            wantedPorts << port;
    }
    struct Server {
        QString host;
        quint16 port;
    };
    QList<Server> wantedServers;
    QSet<QString> wantedRemote;
    for (const QJsonObject& entry :
         configObjects(hw.value(QStringLiteral("ambe_servers")).toArray(), QStringLiteral("hardware.ambe_servers"))) {
        const QString host = entry.value(QStringLiteral("host")).toString().trimmed();
        if (host.isEmpty() || !entry.value(QStringLiteral("enabled")).toBool(true))
            continue;
        const auto port = quint16(entry.value(QStringLiteral("port")).toInt(defaultServerPort));
        wantedServers.append({host, port});
        wantedRemote.insert(QStringLiteral("udp://%1:%2").arg(host).arg(port));
    }
    const bool softwareEnabled = hw.value(QStringLiteral("ambe_md380_enabled")).toBool(true);

    bool touched = false;
    for (int i = int(chips.size()) - 1; i >= 0; --i) {
        const Chip& chip = chips.at(i);
        bool stale = false;
        if (chip.kind == RemoteUdp)
            stale = !wantedRemote.contains(chip.location);
        else if (chip.kind == Software)
            stale = !softwareEnabled;
        else
            stale = !wantedPorts.contains(chip.location);
        if (stale || chip.broken) {
            if (chip.leased)
                retiring.append(chip.device);
            else
                chip.device->deleteLater();
            chips.removeAt(i);
            touched = true;
        }
    }

    QSet<QString> present;
    for (const Chip& chip : std::as_const(chips))
        present.insert(chip.location);
    for (const QString& port : std::as_const(wantedPorts)) {
        if (present.contains(port))
            continue;
        Dv3000* chip = addChip(port, LocalSerial, QStringLiteral("Dv3000Pool: chip on %1 failed:").arg(port));
        zl::postTo(chip, [chip, port] { chip->openPort(port); });
        touched = true;
    }
    for (const Server& server : std::as_const(wantedServers)) {
        const QString target = QStringLiteral("udp://%1:%2").arg(server.host).arg(server.port);
        if (present.contains(target))
            continue;
        present.insert(target);
        Dv3000* chip =
            addChip(target, RemoteUdp, QStringLiteral("Dv3000Pool: remote AMBEserver %1 failed:").arg(target));
        zl::postTo(chip, [chip, server] { chip->openUdp(server.host, server.port); });
        touched = true;
    }
    if (softwareEnabled && !present.contains(softwareLocation)) {
        Dv3000* chip =
            addChip(softwareLocation, Software, QStringLiteral("Dv3000Pool: md380 software vocoder failed:"));
        zl::postTo(chip, [chip] { chip->openInproc(); });
        touched = true;
    }

    if (touched)
        emit changed();
    if (chips.isEmpty())
        qInfo() << "Dv3000Pool: no FTDI VID 0x0403 ports detected, no remote AMBEserver configured";
    else
        qInfo() << "Dv3000Pool: probing" << chips.size() << "ports in parallel";
}

} // namespace zl::hw
