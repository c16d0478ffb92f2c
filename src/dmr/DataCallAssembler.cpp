#include "DataCallAssembler.h"

#include "dmr/BPTC19696.h"
#include "dmr/Bits.h"
#include "dmr/DmrdFrame.h"
#include "dmr/Trellis34.h"

#include <algorithm>

namespace zl::dmr {

namespace {

// Confirmed blocks start with the block's serial number and its CRC-9, which are not data.
constexpr int kConfirmedBlockPrefix = 2;

} // namespace

void DataCallAssembler::openCall(uint32_t streamId, const uint8_t* h, qint64 nowMs)
{
    DataCall call;
    call.dpf = h[0] & 0x0F;
    call.group = (h[0] & 0x80) != 0;
    call.sap = h[1] >> 4;
    call.dataType = DataType::DataHeader;
    call.dstId = readBe(h + 2, 3);
    call.srcId = readBe(h + 5, 3);
    if (call.dpf == Dpf::ShortDataDefined || call.dpf == Dpf::ShortDataRaw) {
        // Short data counts its blocks in these bits and has no pad count.
        call.blocks = uint8_t((h[0] & 0x30) | (h[1] & 0x0F));
    } else {
        call.pad = uint8_t((h[0] & 0x10) | (h[1] & 0x0F));
        call.blocks = h[8] & 0x7F;
    }
    call.payload.reserve(call.blocks * 18);
    call.startedAt = nowMs;
    if (!calls.contains(streamId) && calls.size() >= kMaxOpenCalls) {
        const auto oldest = std::min_element(calls.cbegin(), calls.cend(), [](const DataCall& a, const DataCall& b) {
            return a.startedAt < b.startedAt;
        });
        calls.erase(oldest);
    }
    calls.insert(streamId, call);
}

std::optional<DataCall> DataCallAssembler::feed(uint32_t streamId, uint8_t dataType, const QByteArray& burst33,
                                                qint64 nowMs)
{
    if (burst33.size() != kBurstSize)
        return std::nullopt;
    const auto* burst = reinterpret_cast<const uint8_t*>(burst33.constData());
    if (dataType == DataType::DataHeader) {
        uint8_t header[12];
        BPTC19696().decode(burst, header);
        openCall(streamId, header, nowMs);
        return std::nullopt;
    }
    if (dataType != DataType::Rate12Data && dataType != DataType::Rate34Data)
        return std::nullopt;
    const auto it = calls.find(streamId);
    if (it == calls.end())
        return std::nullopt;

    uint8_t block[18];
    int size = 12;
    if (dataType == DataType::Rate12Data) {
        BPTC19696().decode(burst, block);
    } else {
        // A block that does not decode goes in as far as it did: the text decoder copes.
        trellis34Decode(burst, block);
        size = 18;
    }
    const int skip = it->dpf == Dpf::Confirmed ? kConfirmedBlockPrefix : 0;
    it->payload.append(reinterpret_cast<const char*>(block) + skip, size - skip);
    // A header announcing no blocks is complete with the first that comes.
    if (++it->received < it->blocks)
        return std::nullopt;
    DataCall done = std::move(*it);
    calls.erase(it);
    if (done.pad <= done.payload.size())
        done.payload.chop(done.pad);
    return done;
}

} // namespace zl::dmr
