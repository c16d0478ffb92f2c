#include "IncomingPolicy.h"

#include <QRegularExpression>

namespace zl::echolink {

QStringList parseCallsignList(const QString& text)
{
    static const QRegularExpression separators(QStringLiteral("[,\\s]+"));
    return text.toUpper().split(separators, Qt::SkipEmptyParts);
}

QString incomingRejection(const QString& callsign, int connections, int maxConnections, const QStringList& allowList,
                          const QStringList& blockList)
{
    if (maxConnections <= connections)
        return QStringLiteral("max clients reached");
    const QString call = callsign.toUpper();
    if (blockList.contains(call) || (!allowList.isEmpty() && !allowList.contains(call)))
        return QStringLiteral("blocked / not allowed");
    return {};
}

} // namespace zl::echolink
