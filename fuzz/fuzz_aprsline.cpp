// Any line from an APRS-IS server: the parser, with its Mic-E and compressed decoders, never
// crashes and never reports a position off the globe.
#include "aprs/AprsPacket.h"

#include <cmath>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray line(reinterpret_cast<const char*>(data), qsizetype(size));
    const zl::aprs::ParsedPacket packet = zl::aprs::parseLine(line);
    if (packet.hasPosition && (std::abs(packet.latitude) > 90.0 || std::abs(packet.longitude) > 180.0))
        std::abort();
    return 0;
}
