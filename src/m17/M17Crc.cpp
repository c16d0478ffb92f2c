#include "M17Crc.h"

#include <array>

namespace zl::m17 {

namespace {

constexpr quint16 kPolynomial = 0x5935;

constexpr std::array<quint16, 256> makeTable()
{
    std::array<quint16, 256> table{};
    for (unsigned byte = 0; byte < 256; ++byte) {
        quint16 crc = quint16(byte << 8);
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc & 0x8000) ? quint16((crc << 1) ^ kPolynomial) : quint16(crc << 1);
        table[byte] = crc;
    }
    return table;
}

constexpr std::array<quint16, 256> kTable = makeTable();

} // namespace

quint16 m17Crc(QByteArrayView data)
{
    quint16 crc = 0xFFFF;
    for (char c : data)
        crc = quint16((crc << 8) ^ kTable[((crc >> 8) ^ quint8(c)) & 0xFF]);
    return crc;
}

} // namespace zl::m17
