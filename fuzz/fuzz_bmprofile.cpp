// Any body that BrandMeister (or something in its place) answers to a profile request: the reader
// never crashes and never keeps a subscription without a talkgroup.
#include "dmr/BmProfile.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    zl::dmr::BmProfile profile;
    zl::dmr::parseBmProfile(QByteArray(reinterpret_cast<const char*>(data), qsizetype(size)), profile);
    for (const auto* list : {&profile.staticTalkgroups, &profile.dynamicTalkgroups, &profile.timedTalkgroups})
        for (const zl::dmr::BmStatic& entry : *list)
            if (entry.tg == 0)
                std::abort();
    return 0;
}
