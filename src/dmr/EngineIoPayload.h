#pragma once

#include <QString>
#include <QStringList>

namespace zl::dmr {

// Engine.IO (revision 3) long-polling bodies: packets as "<length>:<packet>" one after another,
// the length counted in characters. What cannot be read ends the list: the packets before it stand.
QStringList decodeEngineIoPayload(const QString& body);
QString encodeEngineIoPacket(const QString& packet);

} // namespace zl::dmr
