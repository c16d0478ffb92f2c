// Any datagram as an IAX2 frame: header, element list and mu-law payload.
#include "iax/IaxFrame.h"
#include "iax/MuLaw.h"

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray datagram(reinterpret_cast<const char*>(data), qsizetype(size));
    if (const auto frame = zl::iax::parseFullFrame(datagram)) {
        const auto ies = zl::iax::parseIes(frame->payload);
        qsizetype total = 0;
        for (const QByteArray& value : ies)
            total += value.size();
        if (total > frame->payload.size())
            __builtin_trap(); // elements can't hold more than the payload
        (void)zl::iax::fullFrame(*frame);
    } else if (datagram.size() > 4) {
        (void)zl::iax::decodeMuLaw(datagram.mid(4));
    }
    return 0;
}
