#include "dmr/DMRLC.h"

#include "dmr/BPTC19696.h"
#include "dmr/DmrdFrame.h"
#include "dmr/RS129.h"
#include "dmr/SlotType.h"
#include "dmr/Sync.h"

#include <QDebug>

namespace zl::dmr {

namespace {

// The Reed-Solomon parity is masked per data type, so that a header never passes as a terminator.
std::optional<uint8_t> crcMask(uint8_t dataType)
{
    switch (dataType) {
    case DataType::VoiceLcHeader:
        return 0x96;
    case DataType::TerminatorWithLc:
        return 0x99;
    default:
        qWarning("Unsupported LC type - %d", int(dataType));
        return std::nullopt;
    }
}

void writeId(uint8_t* out3, uint32_t id)
{
    out3[0] = uint8_t(id >> 16);
    out3[1] = uint8_t(id >> 8);
    out3[2] = uint8_t(id);
}

uint32_t readId(const uint8_t* in3)
{
    return (uint32_t(in3[0]) << 16) | (uint32_t(in3[1]) << 8) | in3[2];
}

} // namespace

void lcToBytes(const DMRLC& lc, uint8_t* out9)
{
    out9[0] = uint8_t((lc.PF ? 0x80 : 0) | (lc.R ? 0x40 : 0) | (lc.FLCO & 0x3F));
    out9[1] = lc.FID;
    out9[2] = lc.options;
    writeId(out9 + 3, lc.dstId);
    writeId(out9 + 6, lc.srcId);
}

DMRLC lcFromBytes(const uint8_t* in9)
{
    DMRLC lc;
    lc.PF = (in9[0] & 0x80) != 0;
    lc.R = (in9[0] & 0x40) != 0;
    lc.FLCO = in9[0] & 0x3F;
    lc.FID = in9[1];
    lc.options = in9[2];
    lc.dstId = readId(in9 + 3);
    lc.srcId = readId(in9 + 6);
    return lc;
}

std::optional<DMRLC> fullLcDecode(const uint8_t* burst33, uint8_t dataType)
{
    const std::optional<uint8_t> mask = crcMask(dataType);
    if (!mask)
        return std::nullopt;
    uint8_t bytes[12];
    BPTC19696().decode(burst33, bytes);
    for (int i = 9; i < 12; ++i)
        bytes[i] ^= *mask;
    if (!rs129Check(bytes))
        return std::nullopt;
    return lcFromBytes(bytes);
}

void fullLcEncode(const DMRLC& lc, uint8_t* burst33, uint8_t dataType)
{
    const std::optional<uint8_t> mask = crcMask(dataType);
    if (!mask)
        return;
    uint8_t bytes[12];
    lcToBytes(lc, bytes);
    uint8_t parity[3];
    rs129Encode(bytes, 9, parity);
    bytes[9] = parity[2] ^ *mask;
    bytes[10] = parity[1] ^ *mask;
    bytes[11] = parity[0] ^ *mask;
    BPTC19696().encode(bytes, burst33);
}

QByteArray buildLcBurst(uint32_t srcId, uint32_t dstId, uint8_t colorCode, uint8_t dataType, bool privateCall)
{
    DMRLC lc;
    lc.FLCO = privateCall ? kFlcoPrivateVoice : kFlcoGroupVoice;
    lc.srcId = srcId;
    lc.dstId = dstId;
    QByteArray burst(kBurstSize, '\0');
    auto* bytes = reinterpret_cast<uint8_t*>(burst.data());
    fullLcEncode(lc, bytes, dataType);
    slotTypeEncode(colorCode, dataType, bytes);
    writeSync(kBsDataSync, bytes);
    return burst;
}

} // namespace zl::dmr
