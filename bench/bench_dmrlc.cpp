// One voice LC header built (LC, Reed-Solomon, BPTC, slot type, sync) and read back (slot type, BPTC
// with correction, Reed-Solomon check): the work of one header or terminator in each direction.
#include "dmr/DMRLC.h"
#include "dmr/SlotType.h"

#include <benchmark/benchmark.h>

namespace {

void lcBurstEncodeDecode(benchmark::State& state)
{
    uint32_t srcId = 2400000;
    for (auto _ : state) {
        const QByteArray burst = zl::dmr::buildLcBurst(srcId, 91, 1, 1, false);
        const auto* bytes = reinterpret_cast<const uint8_t*>(burst.constData());
        const zl::dmr::SlotType slotType = zl::dmr::slotTypeDecode(bytes);
        const std::optional<zl::dmr::DMRLC> lc = zl::dmr::fullLcDecode(bytes, slotType.dataType);
        benchmark::DoNotOptimize(lc);
        srcId = (srcId + 1) & 0xFFFFFF;
    }
}

} // namespace

BENCHMARK(lcBurstEncodeDecode);
