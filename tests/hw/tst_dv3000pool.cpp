#include "SimulatedAmbeChip.h"
#include "TempConfigHome.h"
#include "TestFirmware.h"
#include "ThreadedTestMain.h"
#include "app/Config.h"
#include "hw/Dv3000.h"
#include "hw/Dv3000Pool.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using zl::hw::Dv3000;
using zl::hw::Dv3000Pool;

namespace {

QJsonObject server(quint16 port, bool enabled = true, const QString& host = QStringLiteral("127.0.0.1"))
{
    return QJsonObject{{"host", host}, {"port", port}, {"enabled", enabled}};
}

// firmwareDir empty: the software vocoder is off.
void setHardware(const QJsonArray& servers, const QStringList& disabledPorts = {}, const QString& firmwareDir = {})
{
    QJsonObject hw;
    hw.insert("ambe_servers", servers);
    hw.insert("ambe_disabled_ports", QJsonArray::fromStringList(disabledPorts));
    hw.insert("ambe_md380_enabled", !firmwareDir.isEmpty());
    hw.insert("md380_fw_dir", firmwareDir);
    zl::Config::instance().setSection("hardware", hw);
}

} // namespace

class TestDv3000Pool : public QObject {
    Q_OBJECT

private:
    TempConfigHome home;

private slots:
    void acquiresStickThenServerThenSoftwareThenNothing()
    {
        SimulatedAmbeChip stick;
        SimulatedAmbeChip remote;
        QTemporaryDir firmware;
        QVERIFY(testfw::writeImages(firmware.path()));
        const QString stickPath = stick.openPty();
        const quint16 remotePort = remote.listenUdp();
        setHardware({server(remotePort)}, {}, firmware.path());
        Dv3000Pool pool;
        pool.setPortLister([stickPath] { return QStringList{stickPath}; });
        QSignalSpy detected(&pool, &Dv3000Pool::chipDetected);
        pool.rescan();
        // Chips turn ready on the worker; their detected signals reach us queued, after that.
        QTRY_COMPARE(detected.count(), 3);
        QCOMPARE(pool.readyCount(), 3);

        QSignalSpy changed(&pool, &Dv3000Pool::changed);
        Dv3000* first = pool.acquire(33);
        QVERIFY(first);
        QCOMPARE(pool.locationOf(first), stickPath);
        QTRY_COMPARE(stick.configureRequests(), 1);
        Dv3000* second = pool.acquire(33);
        QVERIFY(second);
        QCOMPARE(pool.locationOf(second), QStringLiteral("udp://127.0.0.1:%1").arg(remotePort));
        QTRY_COMPARE(remote.configureRequests(), 1);
        Dv3000* third = pool.acquire(33);
        QVERIFY(third);
        QCOMPARE(pool.locationOf(third), QStringLiteral("sw://md380"));
        QCOMPARE(pool.acquire(33), nullptr);
        QCOMPARE(pool.leasedCount(), 3);
        QCOMPARE(changed.count(), 3);

        // A released chip keeps its rate: lending it again sends no configuration.
        pool.release(first);
        QCOMPARE(pool.leasedCount(), 2);
        QCOMPARE(changed.count(), 4);
        pool.release(first);
        pool.release(nullptr);
        QCOMPARE(changed.count(), 4);
        QCOMPARE(pool.acquire(33), first);
        QTest::qWait(50);
        QCOMPARE(stick.configureRequests(), 1);

        // Switching the software vocoder off deletes its chip at the next rescan.
        setHardware({server(remotePort)});
        pool.rescan();
        QCOMPARE(pool.readyCount(), 2);
    }

    void leasesAreNeverMoved()
    {
        QTemporaryDir firmware;
        QVERIFY(testfw::writeImages(firmware.path()));
        setHardware({}, {}, firmware.path());
        Dv3000Pool pool;
        QStringList ports;
        pool.setPortLister([&ports] { return ports; });
        pool.rescan();
        QTRY_COMPARE(pool.readyCount(), 1);
        Dv3000* software = pool.acquire(33);
        QVERIFY(software);
        QCOMPARE(pool.locationOf(software), QStringLiteral("sw://md380"));

        // A stick plugged in during the lease is lent to the next caller; the lease stays.
        SimulatedAmbeChip stick;
        ports << stick.openPty();
        pool.rescan();
        QTRY_COMPARE(pool.readyCount(), 2);
        QCOMPARE(pool.leasedCount(), 1);
        Dv3000* next = pool.acquire(33);
        QVERIFY(next);
        QCOMPARE(pool.locationOf(next), ports.first());
        QCOMPARE(pool.locationOf(software), QStringLiteral("sw://md380"));
        QCOMPARE(pool.leasedCount(), 2);
    }

    void failedChipIsReplacedAtRescan()
    {
        SimulatedAmbeChip remote;
        remote.setIdentityReplies(SimulatedAmbeChip::IdentityReplies::Silent);
        setHardware({server(remote.listenUdp())});
        Dv3000Pool pool;
        pool.setPortLister([] { return QStringList(); });
        pool.setProbeInterval(5);
        QSignalSpy failed(&pool, &Dv3000Pool::chipFailed);
        QSignalSpy detected(&pool, &Dv3000Pool::chipDetected);
        pool.rescan();
        QVERIFY(failed.wait(5000));
        auto* dead = failed.at(0).at(0).value<Dv3000*>();
        QVERIFY(failed.at(0).at(1).toString().startsWith(QStringLiteral("no version response on udp://")));
        QCOMPARE(pool.acquire(33), nullptr);

        remote.setIdentityReplies(SimulatedAmbeChip::IdentityReplies::Normal);
        QSignalSpy changed(&pool, &Dv3000Pool::changed);
        pool.rescan();
        QVERIFY(changed.count() >= 1);
        QVERIFY(detected.wait(5000));
        QVERIFY(detected.at(0).at(0).value<Dv3000*>() != dead);
        QCOMPARE(pool.readyCount(), 1);
        // Releasing the deleted chip is harmless.
        pool.release(dead);
        QCOMPARE(pool.leasedCount(), 0);
    }

    void disabledPortsAndServersAreNeverContacted()
    {
        SimulatedAmbeChip disabledStick;
        SimulatedAmbeChip disabledServer;
        SimulatedAmbeChip active;
        const QString stickPath = disabledStick.openPty();
        const quint16 offPort = disabledServer.listenUdp();
        const quint16 onPort = active.listenUdp();
        setHardware({server(offPort, false), server(offPort, true, QStringLiteral("  ")), server(onPort)}, {stickPath});
        Dv3000Pool pool;
        pool.setPortLister([stickPath] { return QStringList{stickPath}; });
        QSignalSpy detected(&pool, &Dv3000Pool::chipDetected);
        pool.rescan();
        QVERIFY(detected.wait(5000));
        // Opens run one after another on the worker; one more round trip through it
        // shows that nothing else was queued.
        QTRY_COMPARE(pool.readyCount(), 1);
        Dv3000* chip = pool.acquire(33);
        QVERIFY(chip);
        QTRY_COMPARE(active.configureRequests(), 1);
        QCOMPARE(disabledStick.packetsReceived(0), 0);
        QCOMPARE(disabledServer.packetsReceived(0), 0);

        // Dropping the server from the list takes its chip out at once; a lent chip lives on,
        // closed to new leases, until it comes back.
        setHardware({});
        QSignalSpy changed(&pool, &Dv3000Pool::changed);
        QSignalSpy gone(chip, &QObject::destroyed);
        pool.rescan();
        QCOMPARE(changed.count(), 1);
        QCOMPARE(pool.readyCount(), 0);
        QCOMPARE(pool.leasedCount(), 1);
        QCOMPARE(pool.acquire(33), nullptr);
        QTest::qWait(50);
        QCOMPARE(gone.count(), 0);
        pool.release(chip);
        QCOMPARE(changed.count(), 2);
        QCOMPARE(pool.leasedCount(), 0);
        QTRY_COMPARE(gone.count(), 1);
    }

    void rescanWithoutChangeIsQuiet()
    {
        SimulatedAmbeChip remote;
        setHardware({server(remote.listenUdp())});
        Dv3000Pool pool;
        pool.setPortLister([] { return QStringList(); });
        QSignalSpy changed(&pool, &Dv3000Pool::changed);
        pool.rescan();
        QCOMPARE(changed.count(), 1);
        // Before the chip's open has even run on the worker.
        pool.rescan();
        QCOMPARE(changed.count(), 1);
        QTRY_COMPARE(pool.readyCount(), 1);
        changed.clear();
        pool.rescan();
        QCOMPARE(changed.count(), 0);
        QCOMPARE(remote.productIdRequests(), 1);
    }

    void prewarmSetsTheRateAhead()
    {
        Dv3000Pool pool;
        pool.setPortLister([] { return QStringList(); });
        QTest::ignoreMessage(QtInfoMsg, "Dv3000Pool::prewarm: no hardware chip detected yet, skipping");
        pool.prewarm(33);

        SimulatedAmbeChip remote;
        setHardware({server(remote.listenUdp())});
        pool.rescan();
        QTRY_COMPARE(pool.readyCount(), 1);
        pool.prewarm(33);
        QTRY_COMPARE(remote.configureRequests(), 1);
        QCOMPARE(pool.leasedCount(), 0);
        // The lease that follows finds the rate in place.
        QVERIFY(pool.acquire(33));
        QTest::qWait(50);
        QCOMPARE(remote.configureRequests(), 1);
    }

    void rejectedRateLendsNothing()
    {
        SimulatedAmbeChip remote;
        remote.setInitStatus(3);
        setHardware({server(remote.listenUdp())});
        Dv3000Pool pool;
        pool.setPortLister([] { return QStringList(); });
        pool.rescan();
        QTRY_COMPARE(pool.readyCount(), 1);
        QSignalSpy failed(&pool, &Dv3000Pool::chipFailed);
        // The lease is handed out at once; the refusal on the worker follows.
        Dv3000* chip = pool.acquire(33);
        QVERIFY(chip);
        QTRY_COMPARE(failed.count(), 1);
        QCOMPARE(failed.at(0).at(1).toString(), QStringLiteral("rate 33 refused"));
        QCOMPARE(pool.readyCount(), 0);
        QCOMPARE(pool.acquire(33), nullptr);
        pool.release(chip);
        remote.setInitStatus(0);
        pool.rescan();
        QTRY_COMPARE(pool.readyCount(), 1);
        QVERIFY(pool.acquire(33));
    }
};

ZL_THREADED_TEST_MAIN(QCoreApplication, TestDv3000Pool)
#include "tst_dv3000pool.moc"
