#include "dmr/WebReply.h"

#include <QNetworkReply>

namespace zl::dmr {

int httpStatus(const QNetworkReply* reply)
{
    return reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
}

QString shownBody(const QByteArray& body)
{
    return QString::fromUtf8(body.left(200));
}

} // namespace zl::dmr
