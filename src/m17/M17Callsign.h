#pragma once

#include <QByteArray>
#include <QString>

namespace zl::m17 {

// Base-40 addresses of M17: up to nine characters of " A-Z0-9-/.", the first character the
// least significant digit. "ALL" padded to nine characters is the broadcast address, and a
// leading "#" marks the reserved range above the callsigns.
inline constexpr quint64 kBroadcastAddress = 0xFFFFFFFFFFFFULL;
inline constexpr quint64 kHashOffset = 0xEE6B28000000ULL;
inline constexpr quint64 kHighestValidAddress = 0xF46108FFFFFFULL;
inline const QString kBroadcastCallsign = QStringLiteral("ALL      ");

quint64 encodeCallsign(const QString& callsign);
QString decodeCallsign(quint64 address);

// The six bytes on the wire, most significant first.
QByteArray addressBytes(quint64 address);
// Reads six bytes at offset; 0 if the data is too short.
quint64 addressAt(const QByteArray& data, qsizetype offset);

} // namespace zl::m17
