#include "YsfPayload.h"

#include "YsfConvolution.h"
#include "YsfCrc.h"
#include "YsfFich.h"
#include "YsfFrame.h"
#include "YsfVoiceField.h"

namespace zl::ysf {

namespace {

// One 20-byte callsign data block through whitening, CRC, convolution and interleaving: 45 bytes.
QByteArray encodeCsd(const QByteArray& block20)
{
    QByteArray data = block20;
    const QByteArray white = whitening(20);
    for (int i = 0; i < 20; ++i)
        data[i] = char(quint8(data.at(i)) ^ quint8(white.at(i)));
    const quint16 crc = ysfCrc(data);
    data.append(char(crc >> 8)).append(char(crc & 0xFF)).append('\0');

    const QList<quint8> coded = convolutionalEncode(bitsOf(data, 180));
    const QList<int> table = interleaveTable(9);
    QList<quint8> out(45 * 8, 0);
    for (int i = 0; i < table.size(); ++i) {
        out[table[i]] = coded[2 * i];
        out[table[i] + 1] = coded[2 * i + 1];
    }
    return bytesOf(out);
}

void writeRuns(QByteArray& payload, const QByteArray& csd45, qsizetype firstOffset)
{
    for (int run = 0; run < 5; ++run)
        payload.replace(firstOffset + 18 * run, 9, csd45.mid(9 * run, 9));
}

} // namespace

QByteArray ysfSync()
{
    return QByteArray::fromHex("d471c9634d");
}

qsizetype voiceFieldOffset(int i)
{
    return 35 + 18 * i;
}

QByteArray buildPayload(int fi, int fn, const PayloadIdentity& id, const QList<QByteArray>& ambeBlock)
{
    QByteArray payload(kPayloadSize, '\0');
    payload.replace(0, kSyncSize, ysfSync());

    Fich fich;
    fich.fi = quint8(fi);
    fich.fn = quint8(fn);
    fich.ft = 6;
    fich.dt = 2;
    fich.mr = 1;
    fich.sq = id.dgId;
    payload.replace(kFichOffset, kFichFieldSize, encodeFich(fich));

    if (fi == 0 || fi == 2) {
        const QByteArray dst = textField(id.destination, 10);
        const QByteArray src = textField(id.source, 10);
        writeRuns(payload, encodeCsd(dst + src), 30);
        writeRuns(payload, encodeCsd(src + src), 39);
    } else if (ambeBlock.size() == kVoiceFieldsPerFrame) {
        for (int i = 0; i < kVoiceFieldsPerFrame; ++i)
            payload.replace(voiceFieldOffset(i), kVoiceFieldSize, ambeBlock.at(i).left(kVoiceFieldSize));
    }
    return payload;
}

} // namespace zl::ysf
