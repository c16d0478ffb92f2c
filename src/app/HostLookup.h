#pragma once

#include <QHostAddress>
#include <QString>

namespace zl {

// A literal address as it is, otherwise the first address of a blocking name look-up.
// A null address when the name does not resolve.
QHostAddress lookupHost(const QString& host);

} // namespace zl
