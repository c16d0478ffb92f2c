// Any body as BrandMeister's text list and as TGIF's JSON list.
#include "db/TgListSync.h"

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray body(reinterpret_cast<const char*>(data), qsizetype(size));
    (void)zl::TgListSync::parseText(body);
    (void)zl::TgListSync::parseTgif(body);
    return 0;
}
