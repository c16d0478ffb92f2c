#include "hw/AmbePacket.h"

namespace zl::hw {

namespace {

// Length of the packet whose header starts at pos, or 0 when the header is implausible.
qsizetype packetLength(const QByteArray& buffer, qsizetype pos)
{
    if (buffer[pos] != 0x61 || quint8(buffer[pos + 3]) > 0x02)
        return 0;
    const qsizetype total = ((quint8(buffer[pos + 1]) & 0x0F) << 8 | quint8(buffer[pos + 2])) + 4;
    return total <= kMaxAmbePacket ? total : 0;
}

} // namespace

bool isWholeAmbePacket(const QByteArray& datagram)
{
    return datagram.size() >= 4 && packetLength(datagram, 0) == datagram.size();
}

QList<QByteArray> takeAmbePackets(QByteArray& buffer)
{
    QList<QByteArray> packets;
    qsizetype pos = 0;
    while (buffer.size() - pos >= 4) {
        const qsizetype total = packetLength(buffer, pos);
        if (total == 0) {
            ++pos;
            continue;
        }
        if (buffer.size() - pos < total)
            break;
        packets.append(buffer.mid(pos, total));
        pos += total;
    }
    buffer.remove(0, pos);
    return packets;
}

void readAmbeIdentity(const QByteArray& packet, QString& prodId, QString& version)
{
    for (qsizetype i = 4; i < packet.size();) {
        const quint8 code = quint8(packet[i]);
        if (code != 0x30 && code != 0x31) {
            i += 2;
            continue;
        }
        qsizetype end = packet.indexOf('\0', i + 1);
        if (end < 0)
            end = packet.size();
        (code == 0x30 ? prodId : version) = QString::fromLatin1(packet.constData() + i + 1, end - i - 1);
        i = end + 1;
    }
}

} // namespace zl::hw
