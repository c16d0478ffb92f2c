// Any bytes from a DV3000 stick or an AMBEserver, in two reads: framing, identity fields
// and the frame conversion never crash, and nothing but whole packets comes out; every
// packet cut from the stream would also pass as a datagram of its own.
#include "hw/AmbeFrame.h"
#include "hw/AmbePacket.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray all(reinterpret_cast<const char*>(data), qsizetype(size));
    const qsizetype split = size ? data[0] % (size + 1) : 0;
    QByteArray buffer = all.left(split);
    QList<QByteArray> packets = zl::hw::takeAmbePackets(buffer);
    buffer += all.mid(split);
    packets += zl::hw::takeAmbePackets(buffer);
    QString prodId;
    QString version;
    for (const QByteArray& packet : packets) {
        if (packet.size() < 4 || packet[0] != 0x61 || !zl::hw::isWholeAmbePacket(packet))
            std::abort();
        if (packet[3] == 0x00)
            zl::hw::readAmbeIdentity(packet, prodId, version);
        if (packet[3] == 0x01 && packet.size() >= 15) {
            uint8_t params[7];
            uint8_t air[9];
            zl::hw::ambe72To49(reinterpret_cast<const uint8_t*>(packet.constData()) + 6, params);
            zl::hw::ambe49To72(params, air);
        }
    }
    if (buffer.size() >= 4 && buffer[0] != 0x61)
        std::abort();
    // The datagram path takes the input whole or not at all.
    if (zl::hw::isWholeAmbePacket(all) && (all.size() > zl::hw::kMaxAmbePacket || all[0] != 0x61))
        std::abort();
    return 0;
}
