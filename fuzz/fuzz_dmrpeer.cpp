// Any sequence of datagrams into a peer client's receive path, and the same voice frames into a
// jitter buffer with play-out ticks: nothing crashes, whatever arrives in whatever order.
#include "dmr/DmrPeerClient.h"
#include "dmr/JitterBuffer.h"

#include <QCoreApplication>

#include <cstdint>

namespace {

void quiet(QtMsgType, const QMessageLogContext&, const QString&)
{
}

} // namespace

// Input: records of [length byte][time step byte][length bytes of datagram].
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static int argc = 1;
    static char name[] = "fuzz_dmrpeer";
    static char* argv[] = {name, nullptr};
    static QCoreApplication app(argc, argv);
    static const auto previous = qInstallMessageHandler(quiet);
    (void)previous;
    if (size < 1)
        return 0;

    qint64 now = 1000000;
    zl::dmr::DmrPeerClient client;
    client.setClockForTests([&] { return now; }, 1);
    zl::dmr::DmrPeerClient::Profile profile;
    profile.rxJitterMs = (data[0] & 1) ? 0 : 120;
    client.setProfile(profile);

    int played = 0;
    zl::dmr::JitterBuffer buffer([&](const QByteArray& frame) { played += frame.size(); });
    qint64 lastFrameMs = now;

    size_t i = 1;
    while (i + 2 <= size) {
        const size_t length = data[i];
        now += qint64(data[i + 1]) * 10;
        i += 2;
        const size_t take = std::min(length, size - i);
        const QByteArray datagram(reinterpret_cast<const char*>(data + i), qsizetype(take));
        i += take;

        client.handleDatagram(datagram);
        if (datagram.size() >= 20 && datagram.startsWith("DMRD")) {
            const quint32 stream = (quint32(quint8(datagram[16])) << 24) | (quint32(quint8(datagram[17])) << 16) |
                                   (quint32(quint8(datagram[18])) << 8) | quint32(quint8(datagram[19]));
            buffer.insert(stream, quint8(datagram[4]), datagram, (quint8(datagram[15]) & 0x3F) == 0x22, now);
            lastFrameMs = now;
        }
        for (int tick = 0; tick < 8 && buffer.needsTicks(); ++tick)
            buffer.tick(now + tick * 10, lastFrameMs, 120);
    }
    buffer.flush();
    return played < 0;
}
