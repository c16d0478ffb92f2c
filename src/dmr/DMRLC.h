#pragma once

#include <QByteArray>

#include <cstdint>
#include <optional>

namespace zl::dmr {

// Full link control: who calls whom, carried in the voice LC header and the terminator.
struct DMRLC {
    bool PF = false;
    bool R = false;
    // 0 group voice, 3 private voice.
    uint8_t FLCO = 0;
    uint8_t FID = 0;
    uint8_t options = 0;
    uint32_t srcId = 0;
    uint32_t dstId = 0;
};

inline constexpr uint8_t kFlcoGroupVoice = 0;
inline constexpr uint8_t kFlcoPrivateVoice = 3;

// The 9-byte form: PF, R and FLCO; FID; options; destination; source.
void lcToBytes(const DMRLC& lc, uint8_t* out9);
DMRLC lcFromBytes(const uint8_t* in9);

// Data type 1 (voice LC header) or 2 (terminator with LC). Anything else logs and yields nothing, as
// does a failed Reed-Solomon check.
std::optional<DMRLC> fullLcDecode(const uint8_t* burst33, uint8_t dataType);
// Writes the BPTC-coded LC into the burst; slot type and sync are the caller's.
void fullLcEncode(const DMRLC& lc, uint8_t* burst33, uint8_t dataType);

// A complete voice LC header (dataType 1) or terminator (2): LC, slot type and base-station data sync.
QByteArray buildLcBurst(uint32_t srcId, uint32_t dstId, uint8_t colorCode, uint8_t dataType, bool privateCall);

} // namespace zl::dmr
