#pragma once

#include <QByteArray>

#include <cstdint>
#include <optional>

namespace zl::dmr {

// The 55-byte Homebrew voice and data datagram: a 20-byte header, one 33-byte air burst, BER and RSSI.
inline constexpr int kDmrdHeaderSize = 20;
inline constexpr int kBurstSize = 33;
inline constexpr int kDmrdBurstOffset = 20;
// BER and RSSI are optional on reception: a frame carries a whole burst from this size on.
inline constexpr int kDmrdMinBurstSize = 53;
inline constexpr int kDmrdSize = 55;

// Flags byte (header byte 15).
inline constexpr uint8_t kFlagSlot2 = 0x80;
inline constexpr uint8_t kFlagPrivateCall = 0x40;
inline constexpr uint8_t kFrameTypeMask = 0x30;
inline constexpr uint8_t kFrameVoice = 0x00;
inline constexpr uint8_t kFrameVoiceSync = 0x10;
inline constexpr uint8_t kFrameDataSync = 0x20;
// Burst letter (A = 0) for voice, data type for data sync.
inline constexpr uint8_t kFlagsLowMask = 0x0F;

// Data types of the slot type and of the flags' low nibble.
namespace DataType {
inline constexpr uint8_t VoiceLcHeader = 1;
inline constexpr uint8_t TerminatorWithLc = 2;
inline constexpr uint8_t Csbk = 3;
inline constexpr uint8_t DataHeader = 6;
inline constexpr uint8_t Rate12Data = 7;
inline constexpr uint8_t Rate34Data = 8;
inline constexpr uint8_t Rate1Data = 10;
} // namespace DataType

struct DmrdHeader {
    uint8_t seq = 0;
    uint32_t srcId = 0;
    uint32_t dstId = 0;
    uint32_t peerId = 0;
    uint8_t flags = 0;
    uint32_t streamId = 0;

    int slot() const { return (flags & kFlagSlot2) ? 2 : 1; }
    bool privateCall() const { return (flags & kFlagPrivateCall) != 0; }
    uint8_t frameType() const { return flags & kFrameTypeMask; }
    // Data type of a data-sync frame, burst letter of a voice frame.
    uint8_t lowNibble() const { return flags & kFlagsLowMask; }
    bool isDataSync() const { return frameType() == kFrameDataSync; }
    bool isVoiceLcHeader() const { return isDataSync() && lowNibble() == DataType::VoiceLcHeader; }
    bool isTerminator() const { return isDataSync() && lowNibble() == DataType::TerminatorWithLc; }
    // Data sync with a type other than voice header or terminator: a burst of a data call.
    bool isDataCallBurst() const { return isDataSync() && !isVoiceLcHeader() && !isTerminator(); }
};

// The header of a datagram starting with "DMRD" and at least 20 bytes long; nothing otherwise.
std::optional<DmrdHeader> parseDmrdHeader(const QByteArray& frame);
// The 33-byte burst, or an empty array for a frame shorter than 53 bytes.
QByteArray dmrdBurst(const QByteArray& frame);
// A complete 55-byte frame with BER and RSSI 0. A burst of the wrong size leaves a zero burst.
QByteArray buildDmrd(const DmrdHeader& header, const QByteArray& burst33);

// Flags of the frames this program sends; slot is 1 or 2.
uint8_t voiceHeaderFlags(int slot, bool privateCall);
uint8_t voiceTerminatorFlags(int slot, bool privateCall);
// voiceSeq 0 is burst A, which carries the voice sync.
uint8_t voiceBurstFlags(int slot, bool privateCall, int voiceSeq);
uint8_t dataFlags(int slot, bool privateCall, uint8_t dataType);

} // namespace zl::dmr
