// Any body as the published user CSV and as the cache file, with every lookup of what came out.
#include "db/UserTable.h"

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArrayView body(reinterpret_cast<const char*>(data), qsizetype(size));
    for (const zl::UserTable& table : {zl::UserTable::fromCsv(body), zl::UserTable::fromTsv(body, 16)}) {
        const zl::UserTable again = zl::UserTable::fromTsv(table.toTsv());
        for (int id = 0; id < 64; ++id)
            (void)(again.callsignOf(id) + again.nameOf(id));
    }
    return 0;
}
