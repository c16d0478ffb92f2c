// Any body a socket.io server (or something in its place) answers to a long poll: the decoder never
// crashes, and every packet it returns lies inside the body.
#include "dmr/EngineIoPayload.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QString body = QString::fromUtf8(reinterpret_cast<const char*>(data), qsizetype(size));
    qsizetype total = 0;
    for (const QString& packet : zl::dmr::decodeEngineIoPayload(body))
        total += packet.size() + 2;
    if (total > body.size())
        std::abort();
    return 0;
}
