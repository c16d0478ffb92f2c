#include "hw/Dv3000Pool.h"

#include "app/Config.h"
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
    for (Dv3000* chip : std::as_const(chips))
        chip->deleteLater();
    worker->quit();
    worker->wait(2000);
    delete worker;
    chips.clear();
    leases.clear();
    requested.clear();
}

void Dv3000Pool::setPortLister(std::function<QStringList()> lister)
{
    portLister = std::move(lister);
}

Dv3000Pool::Kind Dv3000Pool::kind(const Dv3000* chip)
{
    if (chip->isInproc())
        return Software;
    return chip->isUdp() ? RemoteUdp : LocalSerial;
}

QString Dv3000Pool::location(Dv3000* chip) const
{
    const QString port = chip->currentPort();
    if (!port.isEmpty())
        return port;
    const QString target = chip->targetLocation();
    return target.isEmpty() ? requested.value(chip) : target;
}

Dv3000* Dv3000Pool::acquire(int rate)
{
    Dv3000* winner = nullptr;
    {
        QMutexLocker lock(&mutex);
        for (int k = LocalSerial; k <= Software && !winner; ++k) {
            for (Dv3000* chip : std::as_const(chips)) {
                if (kind(chip) == k && chip->isOpen() && !chip->productId().isEmpty() && !leases.value(chip)) {
                    winner = chip;
                    break;
                }
            }
        }
    }
    if (!winner)
        return nullptr;
    bool ok = false;
    if (QThread::currentThread() == winner->thread())
        ok = winner->setRate(rate);
    else
        QMetaObject::invokeMethod(
            winner, [winner, rate] { return winner->setRate(rate); }, Qt::BlockingQueuedConnection, &ok);
    if (!ok)
        return nullptr;
    {
        QMutexLocker lock(&mutex);
        leases.insert(winner, true);
    }
    emit changed();
    return winner;
}

void Dv3000Pool::release(Dv3000* chip)
{
    if (!chip)
        return;
    {
        QMutexLocker lock(&mutex);
        auto it = leases.find(chip);
        if (it == leases.end() || !it.value())
            return;
        it.value() = false;
    }
    emit changed();
}

void Dv3000Pool::prewarm(int rate)
{
    QMutexLocker lock(&mutex);
    for (Dv3000* chip : std::as_const(chips)) {
        if (chip->isOpen() && !chip->productId().isEmpty()) {
            qInfo().noquote() << "Dv3000Pool::prewarm: pre-caching rate" << rate << "on" << chip->currentPort();
            QMetaObject::invokeMethod(
                chip, [chip, rate] { chip->setRate(rate); }, Qt::QueuedConnection);
            return;
        }
    }
    qInfo() << "Dv3000Pool::prewarm: no hardware chip detected yet, skipping";
}

int Dv3000Pool::readyCount() const
{
    QMutexLocker lock(&mutex);
    int n = 0;
    for (const Dv3000* chip : chips) {
        if (chip->isOpen() && !chip->productId().isEmpty())
            ++n;
    }
    return n;
}

int Dv3000Pool::chipCount() const
{
    QMutexLocker lock(&mutex);
    return int(chips.size());
}

int Dv3000Pool::leasedCount() const
{
    QMutexLocker lock(&mutex);
    int n = 0;
    for (bool leased : leases) {
        if (leased)
            ++n;
    }
    return n;
}

Dv3000* Dv3000Pool::addChip(const QString& where, const QString& failureWords)
{
    auto* chip = new Dv3000;
    chip->setProbeInterval(probeIntervalMs);
    chips.append(chip);
    leases.insert(chip, false);
    requested.insert(chip, where);
    chip->moveToThread(worker);
    connect(chip, &Dv3000::detected, this, [this, chip] {
        emit chipDetected(chip);
        emit changed();
    });
    connect(chip, &Dv3000::failed, this, [this, chip, failureWords](const QString& reason) {
        qInfo().noquote() << failureWords << reason;
        emit chipFailed(chip, reason);
        emit changed();
    });
    return chip;
}

void Dv3000Pool::rescan()
{
    QMutexLocker lock(&mutex);
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
        Dv3000* chip = chips.at(i);
        const QString loc = location(chip);
        bool stale = false;
        if (!loc.isEmpty()) {
            if (loc.startsWith(QLatin1String("udp://"), Qt::CaseInsensitive))
                stale = !wantedRemote.contains(loc);
            else if (loc.startsWith(QLatin1String("sw://"), Qt::CaseInsensitive))
                stale = !softwareEnabled;
            else
                stale = !wantedPorts.contains(loc);
        }
        if (stale || !chip->errorText().isEmpty()) {
            leases.remove(chip);
            requested.remove(chip);
            chips.removeAt(i);
            chip->deleteLater();
            touched = true;
        }
    }

    QSet<QString> present;
    for (Dv3000* chip : std::as_const(chips))
        present.insert(location(chip));
    for (const QString& port : std::as_const(wantedPorts)) {
        if (present.contains(port))
            continue;
        Dv3000* chip = addChip(port, QStringLiteral("Dv3000Pool: chip on %1 failed:").arg(port));
        QMetaObject::invokeMethod(
            chip, [chip, port] { chip->openPort(port); }, Qt::QueuedConnection);
        touched = true;
    }
    for (const Server& server : std::as_const(wantedServers)) {
        const QString target = QStringLiteral("udp://%1:%2").arg(server.host).arg(server.port);
        if (present.contains(target))
            continue;
        present.insert(target);
        Dv3000* chip = addChip(target, QStringLiteral("Dv3000Pool: remote AMBEserver %1 failed:").arg(target));
        QMetaObject::invokeMethod(
            chip, [chip, server] { chip->openUdp(server.host, server.port); }, Qt::QueuedConnection);
        touched = true;
    }
    if (softwareEnabled && !present.contains(softwareLocation)) {
        Dv3000* chip = addChip(softwareLocation, QStringLiteral("Dv3000Pool: md380 software vocoder failed:"));
        QMetaObject::invokeMethod(
            chip, [chip] { chip->openInproc(); }, Qt::QueuedConnection);
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
