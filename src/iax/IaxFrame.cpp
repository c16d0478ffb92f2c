#include "IaxFrame.h"

#include <QtEndian>

namespace zl::iax {

quint8 encodeSubclass(quint32 subclass)
{
    if (subclass < 128)
        return quint8(subclass);
    quint8 exponent = 0;
    while ((subclass >> exponent) > 1 && exponent < 31)
        ++exponent;
    return quint8(0x80 | exponent);
}

quint32 decodeSubclass(quint8 coded)
{
    if (coded & 0x80)
        return quint32(1) << (coded & 0x1F);
    return coded;
}

bool isFullFrame(const QByteArray& datagram)
{
    return datagram.size() >= kFullHeaderBytes && (quint8(datagram.at(0)) & 0x80);
}

std::optional<FullFrame> parseFullFrame(const QByteArray& datagram)
{
    if (!isFullFrame(datagram))
        return std::nullopt;
    const char* d = datagram.constData();
    FullFrame frame;
    frame.srcCall = qFromBigEndian<quint16>(d) & 0x7FFF;
    const quint16 dst = qFromBigEndian<quint16>(d + 2);
    frame.retransmitted = dst & 0x8000;
    frame.dstCall = dst & 0x7FFF;
    frame.timestamp = qFromBigEndian<quint32>(d + 4);
    frame.oseq = quint8(d[8]);
    frame.iseq = quint8(d[9]);
    frame.type = quint8(d[10]);
    frame.subclass = decodeSubclass(quint8(d[11]));
    frame.payload = datagram.mid(kFullHeaderBytes);
    return frame;
}

QByteArray fullFrame(const FullFrame& frame)
{
    QByteArray out(kFullHeaderBytes, '\0');
    char* d = out.data();
    qToBigEndian<quint16>(quint16(0x8000 | (frame.srcCall & 0x7FFF)), d);
    qToBigEndian<quint16>(quint16(frame.dstCall & 0x7FFF), d + 2);
    qToBigEndian<quint32>(frame.timestamp, d + 4);
    d[8] = char(frame.oseq);
    d[9] = char(frame.iseq);
    d[10] = char(frame.type);
    d[11] = char(encodeSubclass(frame.subclass));
    out.append(frame.payload);
    return out;
}

QByteArray miniFrame(quint16 srcCall, quint16 timestamp, const QByteArray& audio)
{
    QByteArray out(4, '\0');
    qToBigEndian<quint16>(quint16(srcCall & 0x7FFF), out.data());
    qToBigEndian<quint16>(timestamp, out.data() + 2);
    out.append(audio);
    return out;
}

QHash<quint8, QByteArray> parseIes(const QByteArray& payload)
{
    QHash<quint8, QByteArray> ies;
    qsizetype at = 0;
    while (payload.size() - at >= 2) {
        const quint8 type = quint8(payload.at(at));
        const quint8 length = quint8(payload.at(at + 1));
        if (at + 2 + length > payload.size())
            break;
        ies.insert(type, payload.mid(at + 2, length));
        at += 2 + length;
    }
    return ies;
}

void appendIe(QByteArray& payload, quint8 type, const QByteArray& value)
{
    payload.append(char(type));
    payload.append(char(qMin<qsizetype>(value.size(), 255)));
    payload.append(value.left(255));
}

} // namespace zl::iax
