#include "HostLookup.h"

#include <QHostInfo>

namespace zl {

QHostAddress lookupHost(const QString& host)
{
    QHostAddress address;
    if (address.setAddress(host))
        return address;
    const QList<QHostAddress> found = QHostInfo::fromName(host).addresses();
    return found.isEmpty() ? QHostAddress() : found.first();
}

} // namespace zl
