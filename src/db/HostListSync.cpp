#include "db/HostListSync.h"

#include "db/DirectoryCache.h"
#include "db/ServerRegistry.h"

#include <QDateTime>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>

namespace zl {

namespace {

QString lastSyncPath()
{
    return directoryCachePath(QStringLiteral("last_sync.json"));
}

QJsonObject readLastSync()
{
    QFile file(lastSyncPath());
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QJsonDocument::fromJson(file.readAll()).object();
}

} // namespace

HostListSync::HostListSync(QObject* parent) : QObject(parent), net(new QNetworkAccessManager(this))
{
}

QString HostListSync::baseUrl()
{
    return directoryBaseUrl(QStringLiteral("host_lists_url"), QStringLiteral("http://www.pistar.uk"));
}

void HostListSync::syncIfOlder(int hours)
{
    const QJsonObject stamps = readLastSync();
    const QDateTime now = QDateTime::currentDateTime();
    for (const HostSource& source : hostSources()) {
        if (hours != 0) {
            const QDateTime last = QDateTime::fromString(stamps.value(source.mode).toString(), Qt::ISODate);
            if (last.isValid() && last.secsTo(now) <= qint64(hours) * 3600)
                continue;
        }
        fetch(source, hours == 0);
    }
}

void HostListSync::syncMode(const QString& mode)
{
    if (const HostSource* source = hostSourceFor(mode))
        fetch(*source, true);
}

void HostListSync::fetch(const HostSource& source, bool forced)
{
    QNetworkReply* reply = getDirectory(net, baseUrl() + QStringLiteral("/downloads/") + source.file, timeoutMs);
    ++pending;
    connect(reply, &QNetworkReply::finished, this, [this, source, reply, forced] { onReply(source, reply, forced); });
}

void HostListSync::onReply(const HostSource& source, QNetworkReply* reply, bool forced)
{
    reply->deleteLater();
    --pending;
    if (reply->error() != QNetworkReply::NoError) {
        emit modeFailed(source.mode, downloadError(reply, timeoutMs));
        return finishOne();
    }
    const QByteArray body = reply->readAll();
    const QJsonArray list = parseHostList(source, body);
    // The list in use: the last download, else the copy shipped with the program.
    const qsizetype had = ServerRegistry::officialArray(source.mode).size();
    QString problem = bodyProblem(source.file, reply, body);
    if (problem.isEmpty())
        problem = shrinkProblem(source.file, list.size(), had, forced);
    if (!problem.isEmpty()) {
        emit modeFailed(source.mode, problem);
        return finishOne();
    }
    if (!replaceFile(ServerRegistry::cachePath(source.mode), QJsonDocument(list).toJson(QJsonDocument::Indented))) {
        emit modeFailed(source.mode, QStringLiteral("cannot write %1").arg(ServerRegistry::cachePath(source.mode)));
        return finishOne();
    }
    QJsonObject stamps = readLastSync();
    stamps.insert(source.mode, QDateTime::currentDateTime().toString(Qt::ISODate));
    replaceFile(lastSyncPath(), QJsonDocument(stamps).toJson(QJsonDocument::Compact));
    emit modeUpdated(source.mode, int(list.size()));
    finishOne();
}

void HostListSync::finishOne()
{
    if (pending == 0)
        emit allDone();
}

} // namespace zl
