// Any directory reply as a station list.
#include "echolink/Station.h"

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray reply(reinterpret_cast<const char*>(data), qsizetype(size));
    (void)zl::echolink::parseStationList(reply);
    return 0;
}
