// Bursts of data calls from a master, as records of stream (1 byte), data type (1 byte) and burst
// (33 bytes), through the assembler and the text recognition; the input as a whole is also read
// as a payload. Neither ever crashes, and the table of open calls stays bounded.
#include "dmr/DataCallAssembler.h"
#include "dmr/SmsText.h"

#include <QByteArray>

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    (void)zl::dmr::decodeSmsText(data, int(size));
    zl::dmr::DataCallAssembler assembler;
    for (size_t at = 0; at + 35 <= size; at += 35) {
        const QByteArray burst(reinterpret_cast<const char*>(data + at + 2), 33);
        if (const auto call = assembler.feed(data[at], data[at + 1] & 0x0F, burst, qint64(at))) {
            const auto* payload = reinterpret_cast<const uint8_t*>(call->payload.constData());
            (void)zl::dmr::decodeSmsText(payload, int(call->payload.size()));
        }
        if (assembler.openCalls() > zl::dmr::DataCallAssembler::kMaxOpenCalls)
            std::abort();
    }
    return 0;
}
