#pragma once

#include <QByteArray>
#include <QString>

class QNetworkReply;

namespace zl::dmr {

// The HTTP status of a finished reply, 0 when none came.
int httpStatus(const QNetworkReply* reply);
// The start of a body as messages and logs show it: the first 200 bytes.
QString shownBody(const QByteArray& body);

} // namespace zl::dmr
