#include "svx/SvxSrv.h"

#include <algorithm>

namespace zl::svx {

std::optional<SrvRecord> pickSrvRecord(QList<SrvRecord> records)
{
    if (records.isEmpty())
        return std::nullopt;
    std::stable_sort(records.begin(), records.end(), [](const SrvRecord& a, const SrvRecord& b) {
        return a.priority != b.priority ? a.priority < b.priority : a.weight > b.weight;
    });
    return records.first();
}

} // namespace zl::svx
