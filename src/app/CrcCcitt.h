#pragma once

#include <QByteArrayView>
#include <QtGlobal>

namespace zl {

// CRC-16 with the CCITT polynomial 0x1021, register starting at 0, result complemented. YSF protects
// its FICH with it, and DMR its CSBKs and data headers (there XORed with a mask per burst type).
quint16 crcCcitt(QByteArrayView data);

} // namespace zl
