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

// Simulated AMBE chips on loopback UDP, configured as AMBEservers in a temporary settings
// home and lent by a vocoder pool (a private one, or the application's), for the voice tests
// of the reflector modes.
class AmbeChips {
public:
    explicit AmbeChips(int count, bool shared = false) : count(count), chips(new SimulatedAmbeChip[count])
    {
        QJsonArray servers;
        for (int i = 0; i < count; ++i)
            servers.append(QJsonObject{{"host", "127.0.0.1"}, {"port", chips[i].listenUdp()}, {"enabled", true}});
        zl::Config::instance().setSection("hardware", QJsonObject{{"ambe_servers", servers}});
        if (!shared)
            own = std::make_unique<zl::hw::Dv3000Pool>();
        pool = shared ? zl::hw::Dv3000Pool::instance() : own.get();
        pool->setPortLister([] { return QStringList(); });
        pool->rescan();
    }
    // True once every chip answered the pool.
    bool ready() const
    {
        return QTest::qWaitFor([this] { return pool->readyCount() == count; }, 10000);
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

    TempConfigHome home;
    int count;
    std::unique_ptr<SimulatedAmbeChip[]> chips;
    std::unique_ptr<zl::hw::Dv3000Pool> own;
    zl::hw::Dv3000Pool* pool = nullptr;
};
