// Any line from a DAPNET core: the parser never crashes, always has an answer for a message,
// and never answers with more than one number-and-verdict line.
#include "pocsag/DapnetLine.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray line(reinterpret_cast<const char*>(data), qsizetype(size));
    const zl::pocsag::DapnetLine parsed = zl::pocsag::parseDapnetLine(line);
    if (parsed.kind == zl::pocsag::DapnetLine::Kind::Message &&
        (parsed.answer.size() != 7 || !parsed.answer.startsWith('#') || !parsed.answer.endsWith("\r\n")))
        std::abort();
    return 0;
}
