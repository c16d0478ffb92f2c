#pragma once

#include <QByteArray>
#include <QHash>

#include <cstdint>
#include <optional>

namespace zl::dmr {

// A data call as its header announced it, with the blocks gathered so far.
struct DataCall {
    uint8_t dpf = 0;
    bool group = false;
    uint8_t sap = 0;
    uint8_t pad = 0;
    uint8_t blocks = 0;
    uint8_t dataType = 0;
    uint32_t dstId = 0;
    uint32_t srcId = 0;
    QByteArray payload;
    int received = 0;
    qint64 startedAt = 0;
};

// Data packet formats of the header's low nibble.
namespace Dpf {
inline constexpr uint8_t Unconfirmed = 2;
inline constexpr uint8_t Confirmed = 3;
inline constexpr uint8_t ShortDataDefined = 13;
inline constexpr uint8_t ShortDataRaw = 14;
} // namespace Dpf

// Gathers the bursts of data calls, one entry per stream: a header opens (or reopens) the entry,
// rate 1/2 and 3/4 blocks fill it, and the last announced block completes it. Nothing is checked
// against the CRCs: what arrives is handed on and the text decoder judges it.
class DataCallAssembler {
public:
    // One data burst of a stream; the completed call, once its last block is in.
    std::optional<DataCall> feed(uint32_t streamId, uint8_t dataType, const QByteArray& burst33, qint64 nowMs);
    int openCalls() const { return int(calls.size()); }

    // Calls whose last block never came stay open; beyond this many, the oldest gives way to a
    // new header, so that a flood of headers cannot grow the table without end.
    static constexpr int kMaxOpenCalls = 32;

private:
    void openCall(uint32_t streamId, const uint8_t* header12, qint64 nowMs);

    QHash<uint32_t, DataCall> calls;
};

} // namespace zl::dmr
