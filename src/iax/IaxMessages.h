#pragma once

#include <QByteArray>
#include <QString>

// Element lists of the IAX messages the client sends.
namespace zl::iax {

// NEW: version, called and calling number (both the node), calling name if any, user name,
// format and capability mu-law, and the call token (empty to ask for one).
QByteArray newPayload(const QString& node, const QString& callsign, const QString& username,
                      const QByteArray& callToken);

// AUTHREP: lower-case hex MD5 of challenge followed by password.
QByteArray authRepPayload(const QByteArray& challenge, const QString& password);

// HANGUP with a cause text.
QByteArray hangupPayload(const QString& cause);

} // namespace zl::iax
