#pragma once

#include <QByteArrayView>
#include <QtGlobal>

namespace zl::m17 {

// CRC-16 of the M17 network: polynomial 0x5935, initial 0xFFFF, no reflection, no final XOR,
// bytes top bit first. An empty input gives 0xFFFF.
quint16 m17Crc(QByteArrayView data);

} // namespace zl::m17
