#include "NxdnFrame.h"

namespace zl::nxdn {

namespace {

bool bitAt(const QByteArray& data, int bit)
{
    return (quint8(data.at(bit / 8)) >> (7 - bit % 8)) & 1;
}

void putU16(QByteArray& data, qsizetype offset, quint16 value)
{
    data[offset] = char(value >> 8);
    data[offset + 1] = char(value & 0xFF);
}

quint16 u16At(const QByteArray& data, qsizetype offset)
{
    return quint16((quint8(data.at(offset)) << 8) | quint8(data.at(offset + 1)));
}

// The idle content of a header's SACCH, 10 00 00 hex top bits first: 18 bits.
constexpr quint32 kIdleSacchContent = 0x100000 >> 6;

} // namespace

QByteArray buildNxdnControl(const char* tag, const QString& callsign, quint16 tg)
{
    QByteArray call = callsign.trimmed().toUpper().toLatin1().left(10);
    call.append(QByteArray(10 - call.size(), ' '));
    QByteArray out = QByteArray(tag, 5) + call + QByteArray(2, '\0');
    putU16(out, 15, tg);
    return out;
}

QByteArray buildNxdnd(quint16 source, quint16 destination, quint8 frameFlags, const QByteArray& payload)
{
    QByteArray out = QByteArrayLiteral("NXDND") + QByteArray(5, '\0');
    putU16(out, 5, source);
    putU16(out, 7, destination);
    out[9] = char(frameFlags);
    QByteArray body = payload.left(kPayloadSize);
    body.append(QByteArray(kPayloadSize - body.size(), '\0'));
    return out + body;
}

bool parseNxdnd(const QByteArray& datagram, Nxdnd& out)
{
    if (datagram.size() < kNxdndSize || !datagram.startsWith("NXDND"))
        return false;
    out.source = u16At(datagram, 5);
    out.destination = u16At(datagram, 7);
    out.flags = quint8(datagram.at(9));
    out.payload = datagram.mid(10, kPayloadSize);
    return true;
}

quint8 crc6(const QByteArray& data, int bitCount)
{
    quint8 reg = 0x3F;
    for (int i = 0; i < bitCount; ++i) {
        const bool in = bitAt(data, i);
        const bool top = (reg >> 5) & 1;
        reg = quint8((reg << 1) & 0x3F);
        if (top != in)
            reg ^= 0x27;
    }
    return reg & 0x3F;
}

QByteArray buildLc(quint8 messageType, quint16 source, quint16 destination)
{
    QByteArray lc(9, '\0');
    lc[0] = char(messageType);
    lc[2] = char(0x20); // call option 1 in the top three bits
    putU16(lc, 3, source);
    putU16(lc, 5, destination);
    return lc;
}

QByteArray buildSacch(int structure, int ran, quint32 content18)
{
    const quint32 bits26 = (quint32(structure & 0x3) << 24) | (quint32(ran & 0x3F) << 18) | (content18 & 0x3FFFF);
    QByteArray sacch(4, '\0');
    sacch[0] = char(bits26 >> 18);
    sacch[1] = char(bits26 >> 10);
    sacch[2] = char(bits26 >> 2);
    sacch[3] = char((bits26 & 0x3) << 6);
    sacch[3] = char(quint8(sacch.at(3)) | crc6(sacch, 26));
    return sacch;
}

QByteArray buildHeaderFrame(bool end, quint16 source, quint16 destination, int ran)
{
    QByteArray frame(kPayloadSize, '\0');
    frame[0] = char(kLichHeader);
    frame.replace(1, 4, buildSacch(0, ran, kIdleSacchContent));
    QByteArray facch = buildLc(end ? 8 : 1, source, destination);
    facch.append(QByteArray(14 - facch.size(), '\0'));
    frame.replace(5, 14, facch);
    frame.replace(19, 14, facch);
    return frame;
}

void finishVoiceFrame(QByteArray& block, unsigned counter, quint16 source, quint16 destination, int ran)
{
    const int k = int(counter % 4);
    const QByteArray lc = buildLc(1, source, destination);
    quint32 content = 0;
    for (int i = 0; i < 18; ++i)
        content = (content << 1) | (bitAt(lc, 18 * k + i) ? 1 : 0);
    block[0] = char(kLichVoice);
    block.replace(1, 4, buildSacch(3 - k, ran, content));
}

} // namespace zl::nxdn
