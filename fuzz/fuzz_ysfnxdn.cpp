// Any datagram as a received YSFD or NXDND frame, and any 25 bytes as a FICH: never a crash.
#include "hw/Dv3000Pool.h"
#include "nxdn/NxdnVoice.h"
#include "ysf/YsfFich.h"
#include "ysf/YsfVoice.h"

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    // A pool that was never scanned lends no chips: the receive paths run without audio.
    static zl::hw::Dv3000Pool pool;
    static zl::ysf::YsfVoice ysf(&pool);
    static zl::nxdn::NxdnVoice nxdn(&pool);
    const QByteArray bytes(reinterpret_cast<const char*>(data), qsizetype(size));
    (void)zl::ysf::decodeFich(bytes.left(25));
    for (const QByteArray& prefix : {QByteArray("YSFD"), QByteArray("NXDND"), QByteArray()}) {
        QByteArray datagram = prefix + bytes;
        ysf.onNetworkFrame(datagram);
        nxdn.onNetworkFrame(datagram);
    }
    return 0;
}
