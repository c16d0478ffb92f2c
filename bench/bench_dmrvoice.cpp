// DMR voice timing harness, over loopback with the simulated AMBE chip answering at once:
//  1. transmit pacing: a 10 s transmission through the encoder, and the gaps between the bursts
//     as the master receives them (deviation from 60 ms: median and 99th percentile);
//  2. receive latency: the time from a burst's arrival at the peer client (rx_jitter_ms 0) to the
//     first PCM frame of it reaching the mixer's pushPcm.
// Usage: bench_dmrvoice [seconds of transmission, default 10]
#include "HomebrewMaster.h"
#include "SimulatedAmbeChip.h"
#include "TempConfigHome.h"
#include "app/Config.h"
#include "dmr/AmbeBurst.h"
#include "dmr/DmrPeerClient.h"
#include "dmr/DmrVoiceEncoder.h"
#include "hw/Dv3000Pool.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QJsonArray>
#include <QJsonObject>
#include <QTimer>
#include <QtEndian>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <functional>
#include <vector>

using zl::dmr::DmrPeerClient;

namespace {

constexpr quint32 kPeerA = 240000101;
constexpr quint32 kPeerB = 240000202;

void quiet(QtMsgType, const QMessageLogContext&, const QString&)
{
}

double percentile(std::vector<double> v, double p)
{
    if (v.empty())
        return 0;
    std::sort(v.begin(), v.end());
    const auto i = size_t(std::clamp(std::ceil(p * double(v.size())) - 1, 0.0, double(v.size() - 1)));
    return v[i];
}

void login(DmrPeerClient& client, const QString& label, quint32 id, quint16 port, int rxJitterMs)
{
    DmrPeerClient::Profile p;
    p.label = label;
    p.networkName = label;
    p.host = QStringLiteral("127.0.0.1");
    p.port = port;
    p.peerId = id;
    p.callsign = QStringLiteral("XX0ABC");
    p.password = QStringLiteral("pw");
    p.rxJitterMs = rxJitterMs;
    client.setProfile(p);
    client.start();
}

// Runs the event loop for a while. QTest::qWait would sleep in 10 ms steps between rounds of
// events, which shows up in every arrival time measured on this thread.
void runFor(int ms)
{
    QEventLoop loop;
    QTimer::singleShot(ms, Qt::PreciseTimer, &loop, &QEventLoop::quit);
    loop.exec();
}

// Runs the event loop until done() holds or the time is up.
bool runUntil(const std::function<bool()>& done, int timeoutMs)
{
    QEventLoop loop;
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, &loop, [&] {
        if (done())
            loop.quit();
    });
    poll.start(5);
    QTimer::singleShot(timeoutMs, &loop, &QEventLoop::quit);
    loop.exec();
    return done();
}

QByteArray be32(quint32 v)
{
    char b[4];
    qToBigEndian(v, b);
    return QByteArray(b, 4);
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const int seconds = argc > 1 ? std::max(1, atoi(argv[1])) : 10;
    TempConfigHome home;
    qInstallMessageHandler(quiet);

    SimulatedAmbeChip chipA;
    SimulatedAmbeChip chipB;
    QJsonArray servers;
    for (SimulatedAmbeChip* chip : {&chipA, &chipB})
        servers.append(QJsonObject{{"host", "127.0.0.1"}, {"port", chip->listenUdp()}, {"enabled", true}});
    zl::Config::instance().setSection("hardware",
                                      QJsonObject{{"ambe_servers", servers}, {"ambe_md380_enabled", false}});
    zl::hw::Dv3000Pool* pool = zl::hw::Dv3000Pool::instance();
    pool->rescan();
    if (!runUntil([&] { return pool->readyCount() == 2; }, 10000)) {
        std::fprintf(stderr, "simulated chips not ready\n");
        return 1;
    }
    // Both chips at rate 33 ahead of time: a chip's first configuration blocks the worker thread,
    // and with it the encoder's burst timer, for a good 150 ms.
    zl::hw::Dv3000* first = pool->acquire(33);
    zl::hw::Dv3000* second = pool->acquire(33);
    pool->release(first);
    pool->release(second);

    HomebrewMaster master;
    master.listen();
    master.addPeer(kPeerA, QStringLiteral("pw"));
    master.addPeer(kPeerB, QStringLiteral("pw"));
    DmrPeerClient a;
    DmrPeerClient b;
    b.setPcmSinkForTests([](const QString&, const QByteArray&, const QString&) {});
    login(a, QStringLiteral("A"), kPeerA, master.port(), 120);
    login(b, QStringLiteral("B"), kPeerB, master.port(), 0);
    if (!runUntil([&] { return master.isLoggedIn(kPeerA) && master.isLoggedIn(kPeerB); }, 10000)) {
        std::fprintf(stderr, "peers did not log in\n");
        return 1;
    }

    // 1. Transmit pacing.
    QElapsedTimer clock;
    clock.start();
    std::vector<double> arrivals;
    QObject::connect(&master, &HomebrewMaster::datagramReceived, &master, [&](const QByteArray& d) {
        if (d.startsWith("DMRD") && d.mid(11, 4) == be32(kPeerA) && (quint8(d.at(15)) & 0x20) == 0)
            arrivals.push_back(double(clock.nsecsElapsed()) / 1e6);
    });
    auto* encoder = new zl::dmr::DmrVoiceEncoder(&a);
    encoder->moveToThread(pool->workerThread());
    QMetaObject::invokeMethod(
        encoder, [encoder] { encoder->startStream(1, 2400001, 91, false); }, Qt::BlockingQueuedConnection);
    const QByteArray tone = SimulatedAmbeChip::sine(8000, 800);
    int blocks = seconds * 50;
    QTimer mic;
    mic.setTimerType(Qt::PreciseTimer);
    QObject::connect(&mic, &QTimer::timeout, [&] {
        QMetaObject::invokeMethod(
            encoder, [encoder, tone] { encoder->feedPcm(tone); }, Qt::QueuedConnection);
        if (--blocks == 0)
            mic.stop();
    });
    mic.start(20);
    runFor(seconds * 1000 + 600);
    QMetaObject::invokeMethod(
        encoder, [encoder] { delete encoder; }, Qt::BlockingQueuedConnection);
    std::vector<double> deviation;
    for (size_t i = 1; i < arrivals.size(); ++i) {
        deviation.push_back(std::fabs(arrivals[i] - arrivals[i - 1] - 60.0));
        if (deviation.back() > 5.0)
            std::printf("  interval %zu: %.3f ms\n", i, arrivals[i] - arrivals[i - 1]);
    }
    std::printf("tx pacing: %zu bursts at the master in %d s; |interval - 60 ms|: median %.3f ms, p99 %.3f ms, "
                "max %.3f ms\n",
                arrivals.size(), seconds, percentile(deviation, 0.5), percentile(deviation, 0.99),
                percentile(deviation, 1.0));

    // 2. Receive latency: bursts from the master every 60 ms, to B with no jitter buffer.
    runFor(1600); // the stream A sent to B has ended
    std::vector<double> burstIn;
    std::vector<double> pcmOut;
    QObject::connect(&b, &DmrPeerClient::voiceFrameForDecode, &b,
                     [&](const QByteArray&) { burstIn.push_back(double(clock.nsecsElapsed()) / 1e6); });
    b.setPcmSinkForTests([&](const QString&, const QByteArray&, const QString&) {
        pcmOut.push_back(double(clock.nsecsElapsed()) / 1e6);
    });
    QByteArray frames;
    for (int i = 0; i < 3; ++i)
        frames += SimulatedAmbeChip::encodeFrame(reinterpret_cast<const qint16*>(tone.constData()));
    QByteArray burst(33, '\0');
    const auto* f = reinterpret_cast<const uint8_t*>(frames.constData());
    zl::dmr::insertAmbe(f, f + 9, f + 18, nullptr, reinterpret_cast<uint8_t*>(burst.data()));
    const int bursts = 200;
    int sent = 0;
    QTimer feeder;
    feeder.setTimerType(Qt::PreciseTimer);
    QObject::connect(&feeder, &QTimer::timeout, [&] {
        QByteArray d("DMRD");
        d.append(char(sent));
        d.append(be32(3100001).mid(1));
        d.append(be32(91).mid(1));
        d.append(be32(kPeerB));
        d.append(char(sent % 6 == 0 ? 0x10 : sent % 6));
        d.append(be32(0x5150));
        d.append(burst);
        d.append(2, '\0');
        master.sendToPeer(kPeerB, d);
        if (++sent == bursts)
            feeder.stop();
    });
    feeder.start(60);
    runFor(bursts * 60 + 1000);
    std::vector<double> delay;
    for (size_t k = 0; k < burstIn.size() && 3 * k < pcmOut.size(); ++k)
        delay.push_back(pcmOut[3 * k] - burstIn[k]);
    std::printf("rx latency: %zu bursts, %zu PCM frames; burst arrival to first pushPcm: median %.3f ms, p99 %.3f ms, "
                "max %.3f ms\n",
                burstIn.size(), pcmOut.size(), percentile(delay, 0.5), percentile(delay, 0.99), percentile(delay, 1.0));
    return 0;
}
