#include "db/DirectoryCache.h"

#include "app/Config.h"
#include "app/FileWrite.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QStandardPaths>
#include <QUrl>

namespace zl {

QString directoryCachePath(const QString& fileName)
{
    const QString dir = QStandardPaths::writableLocation(QStandardPaths::CacheLocation);
    QDir().mkpath(dir);
    return dir + QLatin1Char('/') + fileName;
}

QString directoryBaseUrl(const QString& key, const QString& fallback)
{
    const QString url = Config::instance().section(QStringLiteral("directories")).value(key).toString().trimmed();
    return url.isEmpty() ? fallback : url;
}

bool isFresh(const QString& path, int hours)
{
    if (hours <= 0)
        return false;
    const QFileInfo info(path);
    if (!info.exists() || info.size() == 0)
        return false;
    QFile stamp(path + QStringLiteral(".stamp"));
    if (!stamp.open(QIODevice::ReadOnly))
        return false;
    const QDateTime when = QDateTime::fromString(QString::fromUtf8(stamp.readAll()).trimmed(), Qt::ISODate);
    return when.isValid() && when.secsTo(QDateTime::currentDateTime()) < qint64(hours) * 3600;
}

void writeStamp(const QString& path)
{
    replaceFile(path + QStringLiteral(".stamp"), QDateTime::currentDateTime().toString(Qt::ISODate).toUtf8());
}

bool replaceFile(const QString& path, const QByteArray& data)
{
    return writeFileAtomically(path, data, FileAccess::Shared);
}

QNetworkReply* getDirectory(QNetworkAccessManager* net, const QString& url, int timeoutMs)
{
    QNetworkRequest request{QUrl(url)};
    request.setHeader(QNetworkRequest::UserAgentHeader, QStringLiteral("zephyrlake/0.1"));
    request.setTransferTimeout(timeoutMs);
    return net->get(request);
}

QString downloadError(const QNetworkReply* reply, int timeoutMs)
{
    if (reply->error() == QNetworkReply::OperationCanceledError)
        return QStringLiteral("timed out after %1 s").arg(timeoutMs / 1000.0);
    return reply->errorString();
}

QString bodyProblem(const QString& what, const QNetworkReply* reply, const QByteArray& body)
{
    // Qt does not always notice a connection that closes before the announced length.
    const QVariant length = reply->header(QNetworkRequest::ContentLengthHeader);
    if (length.isValid() && length.toLongLong() > body.size())
        return QStringLiteral("%1 is cut short: %2 of %3 bytes").arg(what).arg(body.size()).arg(length.toLongLong());
    const QByteArray start = body.left(256).trimmed().toLower();
    if (start.startsWith('<'))
        return QStringLiteral("%1 is a web page, not the list").arg(what);
    return {};
}

QString shrinkProblem(const QString& what, qsizetype entries, qsizetype had, bool forced)
{
    if (entries == 0)
        return QStringLiteral("%1 has no entries").arg(what);
    if (!forced && entries * 2 < had)
        return QStringLiteral("%1 looks truncated: %2 entries, had %3").arg(what).arg(entries).arg(had);
    return {};
}

QString urlFileName(const QString& url)
{
    return QUrl(url).fileName();
}

} // namespace zl
