#pragma once

#include <QByteArrayView>
#include <QtGlobal>

namespace zl::ysf {

// CRC-16 of the YSF FICH and data channel: the CCITT CRC of app/CrcCcitt.h.
// Sent high byte first.
quint16 ysfCrc(QByteArrayView data);

} // namespace zl::ysf
