#pragma once

#include <QByteArray>
#include <QList>

namespace zl {

// The complete lines of a text stream received so far, taken out of buffer without their CR LF
// (or LF); empty lines are skipped, a partial last line stays in buffer for the next read.
QList<QByteArray> takeLines(QByteArray& buffer);

} // namespace zl
