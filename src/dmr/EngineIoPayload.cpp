#include "dmr/EngineIoPayload.h"

namespace zl::dmr {

QStringList decodeEngineIoPayload(const QString& body)
{
    QStringList packets;
    qsizetype at = 0;
    while (at < body.size()) {
        const qsizetype colon = body.indexOf(QLatin1Char(':'), at);
        if (colon <= at || colon - at > 9)
            break;
        bool ok = false;
        const qsizetype length = body.mid(at, colon - at).toLongLong(&ok);
        if (!ok || length < 0 || length > body.size() - colon - 1)
            break;
        packets.append(body.mid(colon + 1, length));
        at = colon + 1 + length;
    }
    return packets;
}

QString encodeEngineIoPacket(const QString& packet)
{
    return QString::number(packet.size()) + QLatin1Char(':') + packet;
}

} // namespace zl::dmr
