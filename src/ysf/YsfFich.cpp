#include "YsfFich.h"

#include "YsfConvolution.h"
#include "YsfCrc.h"
#include "hw/AmbeFrame.h"

namespace zl::ysf {

QByteArray Fich::toBytes() const
{
    QByteArray b(4, '\0');
    b[0] = char(((fi & 3) << 6) | ((cs & 3) << 4) | ((cm & 3) << 2) | (bn & 3));
    b[1] = char(((bt & 3) << 6) | ((fn & 7) << 3) | (ft & 7));
    b[2] = char((dev ? 0x40 : 0) | ((mr & 7) << 3) | (voip ? 0x04 : 0) | (dt & 3));
    b[3] = char(sq & 0x7F);
    return b;
}

Fich Fich::fromBytes(const QByteArray& four)
{
    const auto at = [&four](int i) { return quint8(four.at(i)); };
    Fich f;
    f.fi = at(0) >> 6;
    f.cs = (at(0) >> 4) & 3;
    f.cm = (at(0) >> 2) & 3;
    f.bn = at(0) & 3;
    f.bt = at(1) >> 6;
    f.fn = (at(1) >> 3) & 7;
    f.ft = at(1) & 7;
    f.dev = at(2) & 0x40;
    f.mr = (at(2) >> 3) & 7;
    f.voip = at(2) & 0x04;
    f.dt = at(2) & 3;
    f.sq = at(3) & 0x7F;
    return f;
}

QList<int> interleaveTable(int rows)
{
    QList<int> table;
    table.reserve(20 * rows);
    for (int c = 0; c < 20; ++c) {
        for (int r = 0; r < rows; ++r)
            table.append(40 * r + 2 * c);
    }
    return table;
}

QByteArray encodeFich(const Fich& fich)
{
    QByteArray six = fich.toBytes();
    const quint16 crc = ysfCrc(six);
    six.append(char(crc >> 8)).append(char(crc & 0xFF));

    QByteArray golay;
    for (int w = 0; w < 4; ++w) {
        // Three bytes make two 12-bit words.
        const quint32 pair = (quint32(quint8(six.at(w / 2 * 3))) << 16) |
                             (quint32(quint8(six.at(w / 2 * 3 + 1))) << 8) | quint8(six.at(w / 2 * 3 + 2));
        const quint32 data = (w % 2 == 0) ? pair >> 12 : pair & 0xFFF;
        const quint32 word = zl::hw::golay24Encode(data);
        golay.append(char(word >> 16)).append(char(word >> 8)).append(char(word));
    }
    golay.append('\0'); // four tail bits bring the encoder back to state 0

    const QList<quint8> coded = convolutionalEncode(bitsOf(golay, 100));
    const QList<int> table = interleaveTable(5);
    QList<quint8> field(kFichFieldSize * 8, 0);
    for (int i = 0; i < table.size(); ++i) {
        field[table[i]] = coded[2 * i];
        field[table[i] + 1] = coded[2 * i + 1];
    }
    return bytesOf(field);
}

std::optional<Fich> decodeFich(const QByteArray& fichField)
{
    if (fichField.size() < kFichFieldSize)
        return std::nullopt;
    const QList<quint8> bits = bitsOf(fichField, kFichFieldSize * 8);
    const QList<int> table = interleaveTable(5);
    QList<quint8> pairs;
    pairs.reserve(2 * table.size());
    for (int t : table) {
        pairs.append(bits[t]);
        pairs.append(bits[t + 1]);
    }
    const QByteArray golay = bytesOf(viterbiDecode(pairs).first(96));

    QByteArray six(6, '\0');
    for (int w = 0; w < 4; ++w) {
        const quint32 word = (quint32(quint8(golay.at(3 * w))) << 16) | (quint32(quint8(golay.at(3 * w + 1))) << 8) |
                             quint8(golay.at(3 * w + 2));
        quint32 data = 0;
        if (!zl::hw::golay24Decode(word, data))
            return std::nullopt;
        const int byte = w / 2 * 3;
        if (w % 2 == 0) {
            six[byte] = char(data >> 4);
            six[byte + 1] = char((data & 0xF) << 4);
        } else {
            six[byte + 1] = char(quint8(six.at(byte + 1)) | (data >> 8));
            six[byte + 2] = char(data & 0xFF);
        }
    }
    const quint16 crc = ysfCrc(six.first(4));
    if (quint8(six.at(4)) != (crc >> 8) || quint8(six.at(5)) != (crc & 0xFF))
        return std::nullopt;
    return Fich::fromBytes(six.first(4));
}

} // namespace zl::ysf
