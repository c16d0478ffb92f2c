// Any byte stream as reflector control traffic: framing and every message parser.
#include "svx/SvxWire.h"

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    using namespace zl::svx;
    const QByteArray bytes(reinterpret_cast<const char*>(data), qsizetype(size));
    QList<Frame> frames;
    const qsizetype used = takeFrames(bytes, frames);
    if (used < 0 || used > bytes.size())
        __builtin_trap();
    // The raw input also stands in for a payload, so parsers see arbitrary contents.
    frames.append(Frame{0, bytes});
    for (const Frame& f : std::as_const(frames)) {
        (void)parseAuthChallenge(f.payload);
        (void)parseError(f.payload);
        (void)parseServerInfo(f.payload);
        (void)parseNodeList(f.payload);
        (void)parseString(f.payload);
        (void)parseTalker(f.payload);
        (void)parseProtoVerDowngrade(f.payload);
    }
    return 0;
}
