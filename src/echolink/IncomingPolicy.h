#pragma once

#include <QString>
#include <QStringList>

// Who may connect to this station: the settings' allow and block lists and the connection limit.
namespace zl::echolink {

// "AA1AA, bb2bb\nCC3CC" → {"AA1AA", "BB2BB", "CC3CC"}: upper-cased, split at commas and blanks.
QStringList parseCallsignList(const QString& text);

// Empty when the caller is accepted; otherwise why not, as the log line says it: "max clients
// reached" or "blocked / not allowed". A block wins over an allow; an empty allow list allows all.
QString incomingRejection(const QString& callsign, int connections, int maxConnections, const QStringList& allowList,
                          const QStringList& blockList);

} // namespace zl::echolink
