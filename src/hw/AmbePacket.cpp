#include "hw/AmbePacket.h"

namespace zl::hw {

QList<QByteArray> takeAmbePackets(QByteArray& buffer)
{
    QList<QByteArray> packets;
    qsizetype pos = 0;
    while (buffer.size() - pos >= 4) {
        if (buffer[pos] != 0x61) {
            ++pos;
            continue;
        }
        const qsizetype total = ((quint8(buffer[pos + 1]) & 0x0F) << 8 | quint8(buffer[pos + 2])) + 4;
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
