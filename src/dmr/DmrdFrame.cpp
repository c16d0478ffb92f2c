#include "dmr/DmrdFrame.h"

#include "dmr/Bits.h"

namespace zl::dmr {

namespace {

uint32_t readBe(const QByteArray& bytes, int offset, int width)
{
    return zl::dmr::readBe(reinterpret_cast<const uint8_t*>(bytes.constData()) + offset, width);
}

void writeBe(QByteArray& bytes, int offset, int width, uint32_t value)
{
    zl::dmr::writeBe(reinterpret_cast<uint8_t*>(bytes.data()) + offset, width, value);
}

uint8_t slotBits(int slot, bool privateCall)
{
    return uint8_t((slot == 2 ? kFlagSlot2 : 0) | (privateCall ? kFlagPrivateCall : 0));
}

} // namespace

std::optional<DmrdHeader> parseDmrdHeader(const QByteArray& frame)
{
    if (frame.size() < kDmrdHeaderSize || !frame.startsWith("DMRD"))
        return std::nullopt;
    DmrdHeader header;
    header.seq = uint8_t(frame[4]);
    header.srcId = readBe(frame, 5, 3);
    header.dstId = readBe(frame, 8, 3);
    header.peerId = readBe(frame, 11, 4);
    header.flags = uint8_t(frame[15]);
    header.streamId = readBe(frame, 16, 4);
    return header;
}

QByteArray dmrdBurst(const QByteArray& frame)
{
    if (frame.size() < kDmrdMinBurstSize)
        return {};
    return frame.mid(kDmrdBurstOffset, kBurstSize);
}

QByteArray buildDmrd(const DmrdHeader& header, const QByteArray& burst33)
{
    QByteArray frame(kDmrdSize, '\0');
    frame.replace(0, 4, "DMRD");
    frame[4] = char(header.seq);
    writeBe(frame, 5, 3, header.srcId);
    writeBe(frame, 8, 3, header.dstId);
    writeBe(frame, 11, 4, header.peerId);
    frame[15] = char(header.flags);
    writeBe(frame, 16, 4, header.streamId);
    if (burst33.size() == kBurstSize)
        frame.replace(kDmrdBurstOffset, kBurstSize, burst33);
    return frame;
}

uint8_t voiceHeaderFlags(int slot, bool privateCall)
{
    return dataFlags(slot, privateCall, DataType::VoiceLcHeader);
}

uint8_t voiceTerminatorFlags(int slot, bool privateCall)
{
    return dataFlags(slot, privateCall, DataType::TerminatorWithLc);
}

uint8_t voiceBurstFlags(int slot, bool privateCall, int voiceSeq)
{
    const uint8_t frameType = voiceSeq == 0 ? kFrameVoiceSync : kFrameVoice;
    return uint8_t(slotBits(slot, privateCall) | frameType | (voiceSeq & kFlagsLowMask));
}

uint8_t dataFlags(int slot, bool privateCall, uint8_t dataType)
{
    return uint8_t(slotBits(slot, privateCall) | kFrameDataSync | (dataType & kFlagsLowMask));
}

} // namespace zl::dmr
