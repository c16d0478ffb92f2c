#pragma once

#include "SimulatedAmbeChip.h"
#include "TempConfigHome.h"
#include "app/Config.h"
#include "hw/AmbeFrame.h"
#include "hw/Dv3000Pool.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QRandomGenerator>
#include <QTest>

#include <memory>
#include <optional>

// Simulated AMBE chips on loopback UDP, configured as AMBEservers (software vocoder off) and lent
// by a vocoder pool: a private one, or the application's. Constructed with a count, it brings its
// own settings home; default-constructed, it uses the suite's and start() configures it.
class AmbeChips {
public:
    AmbeChips() = default;
    explicit AmbeChips(int count, bool shared = false)
    {
        home.emplace();
        configure(count, shared);
    }
    bool start(int count)
    {
        configure(count, true);
        return ready();
    }
    // True once every chip answered the pool.
    bool ready() const
    {
        return QTest::qWaitFor([this] { return pool->readyCount() == count; }, 20000);
    }

    // Hardware settings with one more AMBEserver on the loopback address.
    static QJsonObject withServer(QJsonObject hardware, quint16 port)
    {
        QJsonArray servers = hardware.value("ambe_servers").toArray();
        servers.append(QJsonObject{{"host", "127.0.0.1"}, {"port", port}, {"enabled", true}});
        hardware.insert("ambe_servers", servers);
        return hardware;
    }
    // A 72-bit frame as a chip would produce it: any 49 bits, coded.
    static QByteArray randomFrame(QRandomGenerator& rng)
    {
        uint8_t seven[7];
        for (uint8_t& b : seven)
            b = uint8_t(rng.bounded(256));
        seven[6] &= 0x80;
        QByteArray nine(9, '\0');
        zl::hw::ambe49To72(seven, reinterpret_cast<uint8_t*>(nine.data()));
        return nine;
    }
    int channelPackets() const
    {
        int n = 0;
        for (int i = 0; i < count; ++i)
            n += chips[i].packetsReceived(1);
        return n;
    }
    SimulatedAmbeChip& chip(int i) { return chips[i]; }

    std::optional<TempConfigHome> home;
    int count = 0;
    std::unique_ptr<SimulatedAmbeChip[]> chips;
    std::unique_ptr<zl::hw::Dv3000Pool> own;
    zl::hw::Dv3000Pool* pool = nullptr;

private:
    void configure(int n, bool shared)
    {
        count = n;
        chips.reset(new SimulatedAmbeChip[n]);
        QJsonObject hardware{{"ambe_md380_enabled", false}};
        for (int i = 0; i < n; ++i)
            hardware = withServer(hardware, chips[i].listenUdp());
        zl::Config::instance().setSection("hardware", hardware);
        if (!shared)
            own = std::make_unique<zl::hw::Dv3000Pool>();
        pool = shared ? zl::hw::Dv3000Pool::instance() : own.get();
        pool->setPortLister([] { return QStringList(); });
        pool->rescan();
    }
};
