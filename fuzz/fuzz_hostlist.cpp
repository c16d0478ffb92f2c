// Any body as each of the published host list layouts.
#include "db/HostListFormat.h"

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray body(reinterpret_cast<const char*>(data), qsizetype(size));
    for (const zl::HostSource& source : zl::hostSources())
        (void)zl::parseHostList(source, body);
    return 0;
}
