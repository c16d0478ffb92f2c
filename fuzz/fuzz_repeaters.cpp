// Any body as a published repeater list.
#include "db/RepeaterDb.h"

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray body(reinterpret_cast<const char*>(data), qsizetype(size));
    (void)zl::RepeaterDb::parse(body);
    return 0;
}
