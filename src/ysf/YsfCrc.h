#pragma once

#include <QByteArrayView>
#include <QtGlobal>

namespace zl::ysf {

// CRC-16 of the YSF FICH and data channel: CCITT polynomial 0x1021, start 0, complemented.
// Sent high byte first.
quint16 ysfCrc(QByteArrayView data);

} // namespace zl::ysf
