#include "NxdnAmbe.h"

#include "hw/AmbeFrame.h"

namespace zl::nxdn {

namespace {

int slotBit(int slot)
{
    return (slot < 2 ? 5 * 8 : 19 * 8) + (slot % 2) * 49;
}

} // namespace

void putAmbe(QByteArray& block, int slot, const QByteArray& frame9)
{
    // The chip's frames are whole code words, so taking them apart needs no correction.
    uint8_t seven[7] = {};
    zl::hw::ambe72To49(reinterpret_cast<const uint8_t*>(frame9.constData()), seven);
    const int first = slotBit(slot);
    for (int i = 0; i < 49; ++i) {
        const int bit = first + i;
        const quint8 mask = quint8(0x80 >> (bit % 8));
        if ((seven[i / 8] >> (7 - i % 8)) & 1)
            block[bit / 8] = char(quint8(block.at(bit / 8)) | mask);
        else
            block[bit / 8] = char(quint8(block.at(bit / 8)) & ~mask);
    }
}

QByteArray ambeAt(const QByteArray& block, int slot)
{
    uint8_t seven[7] = {};
    const int first = slotBit(slot);
    for (int i = 0; i < 49; ++i) {
        const int bit = first + i;
        if ((quint8(block.at(bit / 8)) >> (7 - bit % 8)) & 1)
            seven[i / 8] |= uint8_t(0x80 >> (i % 8));
    }
    QByteArray frame(9, '\0');
    zl::hw::ambe49To72(seven, reinterpret_cast<uint8_t*>(frame.data()));
    return frame;
}

} // namespace zl::nxdn
