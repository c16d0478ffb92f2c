#include "db/TgListSync.h"

#include "db/DirectoryCache.h"
#include "db/HostListSync.h"

#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>

namespace zl {

namespace {

const QString kBm = QStringLiteral("BM");
const QString kTgif = QStringLiteral("TGIF");

QJsonObject talkgroup(qint64 id, const QString& type, const QString& name, const QString& description)
{
    return QJsonObject{{QStringLiteral("id"), id},
                       {QStringLiteral("type"), type},
                       {QStringLiteral("name"), name},
                       {QStringLiteral("description"), description}};
}

qsizetype entriesIn(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return 0;
    return QJsonDocument::fromJson(file.readAll()).array().size();
}

} // namespace

TgListSync::TgListSync(QObject* parent) : QObject(parent), net(new QNetworkAccessManager(this))
{
}

QString TgListSync::fileForNetwork(const QString& network)
{
    const QString n = network.toLower();
    const auto starts = [&n](const char* prefix) { return n.startsWith(QLatin1String(prefix)); };
    QString key = network;
    if (starts("brandmeister") || n == QLatin1String("bm"))
        key = kBm;
    else if (starts("tgif"))
        key = kTgif;
    else if (starts("amcomm") || n == QLatin1String("amcom"))
        key = QStringLiteral("AmComm");
    else if (starts("hamunited"))
        key = QStringLiteral("HamUnited");
    else if (starts("freedmr"))
        key = QStringLiteral("FreeDMR");
    else if (starts("hblink"))
        key = QStringLiteral("HBLink");
    else if (starts("ipsc2"))
        key = QStringLiteral("IPSC2");
    else if (starts("phoenix"))
        key = QStringLiteral("Phoenix");
    return directoryCachePath(key.toLower() + QStringLiteral("_talkgroups.json"));
}

void TgListSync::syncIfOlder(int hours)
{
    for (const QString& network : {kBm, kTgif}) {
        if (!isFresh(fileForNetwork(network), hours))
            fetchNetwork(network, hours == 0);
    }
}

void TgListSync::fetchNetwork(const QString& network, bool forced)
{
    QString url;
    if (network == kBm)
        url = HostListSync::baseUrl() + QStringLiteral("/downloads/TGList_BM.txt");
    else if (network == kTgif)
        url = directoryBaseUrl(QStringLiteral("tgif_url"), QStringLiteral("https://tgif.network")) +
              QStringLiteral("/dmr/talkgroups/json");
    if (url.isEmpty()) {
        emit networkFailed(network, QStringLiteral("no scraper implemented yet (AmComm/HamUnited/FreeDMR TBD)"));
        return;
    }
    QNetworkReply* reply = getDirectory(net, url, timeoutMs);
    connect(reply, &QNetworkReply::finished, this, [this, network, reply, forced] { onReply(network, reply, forced); });
}

QJsonArray TgListSync::parseText(const QByteArray& body)
{
    static const QHash<QString, QString> types = {{QStringLiteral("0"), QStringLiteral("TG")},
                                                  {QStringLiteral("1"), QStringLiteral("REF")},
                                                  {QStringLiteral("2"), QStringLiteral("PC")}};
    QJsonArray out;
    for (const QString& raw : QString::fromUtf8(body).split(u'\n', Qt::SkipEmptyParts)) {
        const QString line = raw.trimmed();
        if (line.isEmpty() || line.startsWith(u'#'))
            continue;
        const QStringList f = line.split(u';');
        if (f.size() < 3)
            continue;
        bool ok = false;
        const qint64 id = f[0].trimmed().toLongLong(&ok);
        out.append(
            talkgroup(ok ? id : 0, types.value(f[1], f[1]), f[2].trimmed(), f.size() > 3 ? f[3].trimmed() : QString()));
    }
    return out;
}

std::optional<QJsonArray> TgListSync::parseTgif(const QByteArray& body)
{
    const QJsonDocument doc = QJsonDocument::fromJson(body);
    if (!doc.isArray())
        return std::nullopt;
    QJsonArray out;
    for (const QJsonValue& value : doc.array()) {
        const QJsonObject o = value.toObject();
        bool ok = false;
        const qint64 id = o.value(QStringLiteral("id")).toString().toLongLong(&ok);
        const auto text = QByteArray::fromBase64Encoding(o.value(QStringLiteral("description")).toString().toLatin1(),
                                                         QByteArray::AbortOnBase64DecodingErrors);
        const QString description = text ? QString::fromUtf8(*text).trimmed() : QString();
        out.append(talkgroup(ok ? id : 0, QStringLiteral("TG"), o.value(QStringLiteral("name")).toString().trimmed(),
                             description));
    }
    return out;
}

void TgListSync::onReply(const QString& network, QNetworkReply* reply, bool forced)
{
    reply->deleteLater();
    if (reply->error() != QNetworkReply::NoError) {
        emit networkFailed(network, downloadError(reply, timeoutMs));
        return;
    }
    const QByteArray body = reply->readAll();
    const QString what = urlFileName(reply->url().toString());
    const QString path = fileForNetwork(network);
    QString problem = bodyProblem(what, reply, body);
    std::optional<QJsonArray> list;
    if (problem.isEmpty())
        list = network == kTgif ? parseTgif(body) : parseText(body);
    if (problem.isEmpty() && !list)
        problem = QStringLiteral("response is not a JSON array");
    if (problem.isEmpty())
        problem = shrinkProblem(what, list->size(), entriesIn(path), forced);
    if (!problem.isEmpty()) {
        emit networkFailed(network, problem);
        return;
    }
    if (replaceFile(path, QJsonDocument(*list).toJson(QJsonDocument::Indented)))
        writeStamp(path);
    emit networkUpdated(network, int(list->size()));
}

} // namespace zl
