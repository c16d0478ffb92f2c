#include "CrcCcitt.h"

namespace zl {

quint16 crcCcitt(QByteArrayView data)
{
    quint16 crc = 0;
    for (char c : data) {
        crc ^= quint16(quint8(c) << 8);
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc & 0x8000) ? quint16((crc << 1) ^ 0x1021) : quint16(crc << 1);
    }
    return quint16(~crc);
}

} // namespace zl
