#include "db/RepeaterDb.h"

#include "db/DirectoryCache.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>

namespace zl {

RepeaterDb::RepeaterDb(QObject* parent) : QObject(parent), net(new QNetworkAccessManager(this))
{
}

const QList<RepeaterDb::Source>& RepeaterDb::sources()
{
    static const QList<Source> list = {
        {QStringLiteral("DMR"), QStringLiteral("/static/rptrs.json"), QStringLiteral("dmr_repeaters.json")},
        {QStringLiteral("NXDN"), QStringLiteral("/static/nxdn_repeaters.json"), QStringLiteral("nxdn_repeaters.json")},
        {QStringLiteral("P25"), QStringLiteral("/static/p25_repeaters.json"), QStringLiteral("p25_repeaters.json")},
        {QStringLiteral("D-STAR"), QStringLiteral("/static/dstar_repeaters.json"),
         QStringLiteral("dstar_repeaters.json")},
    };
    return list;
}

QString RepeaterDb::pathFor(const QString& mode)
{
    for (const Source& source : sources()) {
        if (source.mode == mode)
            return directoryCachePath(source.file);
    }
    return {};
}

QString RepeaterDb::baseUrl()
{
    return directoryBaseUrl(QStringLiteral("repeaters_url"), QStringLiteral("https://radioid.net"));
}

std::optional<RepeaterDb::Table> RepeaterDb::parse(const QByteArray& body)
{
    const QJsonDocument doc = QJsonDocument::fromJson(body);
    const QJsonValue list = doc.object().value(QStringLiteral("rptrs"));
    if (!doc.isObject() || !list.isArray())
        return std::nullopt;
    Table table;
    for (const QJsonValue& value : list.toArray()) {
        const QJsonObject o = value.toObject();
        RepeaterEntry e;
        e.id = o.value(QStringLiteral("id")).toInt(0);
        if (e.id == 0)
            e.id = o.value(QStringLiteral("identity_id")).toInt(0);
        if (e.id == 0)
            continue;
        e.callsign = o.value(QStringLiteral("callsign")).toString().trimmed().toUpper();
        e.city = o.value(QStringLiteral("city")).toString();
        e.state = o.value(QStringLiteral("state")).toString();
        e.country = o.value(QStringLiteral("country")).toString();
        e.frequency = o.value(QStringLiteral("frequency")).toString();
        e.ipscNetwork = o.value(QStringLiteral("ipsc_network")).toString();
        table.insert(e.id, e);
    }
    return table;
}

void RepeaterDb::readFile(const Source& source)
{
    QFile file(directoryCachePath(source.file));
    if (!file.open(QIODevice::ReadOnly))
        return;
    repeaters[source.mode] = parse(file.readAll()).value_or(Table());
}

void RepeaterDb::loadFromDisk()
{
    for (const Source& source : sources())
        readFile(source);
}

void RepeaterDb::refreshIfOlder(int hours)
{
    for (const Source& source : sources()) {
        if (isFresh(directoryCachePath(source.file), hours)) {
            if (!repeaters.contains(source.mode))
                readFile(source);
            continue;
        }
        QNetworkReply* reply = getDirectory(net, baseUrl() + source.path, timeoutMs);
        const bool forced = hours == 0;
        connect(reply, &QNetworkReply::finished, this,
                [this, source, reply, forced] { onReply(source, reply, forced); });
    }
}

std::optional<RepeaterEntry> RepeaterDb::find(const QString& mode, int id) const
{
    const auto table = repeaters.constFind(mode);
    if (table == repeaters.constEnd())
        return std::nullopt;
    const auto it = table->constFind(id);
    if (it == table->constEnd())
        return std::nullopt;
    return *it;
}

void RepeaterDb::onReply(const Source& source, QNetworkReply* reply, bool forced)
{
    reply->deleteLater();
    if (reply->error() != QNetworkReply::NoError) {
        emit failed(source.mode, downloadError(reply, timeoutMs));
        return;
    }
    const QByteArray body = reply->readAll();
    const QString what = urlFileName(source.path);
    QString problem = bodyProblem(what, reply, body);
    const std::optional<Table> table = problem.isEmpty() ? parse(body) : std::nullopt;
    if (problem.isEmpty() && !table)
        problem = QStringLiteral("%1 is not a repeater list").arg(what);
    if (problem.isEmpty())
        problem = shrinkProblem(what, table->size(), count(source.mode), forced);
    if (!problem.isEmpty()) {
        emit failed(source.mode, problem);
        return;
    }
    repeaters[source.mode] = *table;
    const QString path = directoryCachePath(source.file);
    if (replaceFile(path, body))
        writeStamp(path);
    emit refreshed(source.mode, int(table->size()));
}

} // namespace zl
