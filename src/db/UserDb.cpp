#include "db/UserDb.h"

#include "db/DirectoryCache.h"

#include <QFile>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QThread>

#include <memory>
#include <optional>

namespace zl {

namespace {

UserDb* current = nullptr;

// A full DMR list holds hundreds of thousands of users; growing the table step by step on the
// way in would cost more than the reading.
constexpr qsizetype kDmrRoom = 1 << 20;

// Nothing when the file cannot be opened: the table in memory then stays as it is.
std::optional<UserTable> readTable(const QString& path, qsizetype room)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    return UserTable::fromTsv(file.readAll(), room);
}

} // namespace

UserDb* UserDb::instance()
{
    return current;
}

UserDb::UserDb(QObject* parent) : QObject(parent), net(new QNetworkAccessManager(this))
{
    current = this;
}

struct UserDb::Loaded {
    std::optional<UserTable> dmr;
    std::optional<UserTable> nxdn;
};

UserDb::~UserDb()
{
    if (current == this)
        current = nullptr;
    if (loader) {
        loader->wait();
        delete loader;
    }
}

QString UserDb::dmrPath()
{
    return directoryCachePath(QStringLiteral("dmr_users.tsv"));
}

QString UserDb::nxdnPath()
{
    return directoryCachePath(QStringLiteral("nxdn_users.tsv"));
}

QString UserDb::baseUrl()
{
    return directoryBaseUrl(QStringLiteral("users_url"), QStringLiteral("https://radioid.net"));
}

void UserDb::loadFromDisk()
{
    if (loader)
        return;
    auto loaded = std::make_shared<Loaded>();
    loader = QThread::create([loaded, dmrFile = dmrPath(), nxdnFile = nxdnPath()] {
        loaded->dmr = readTable(dmrFile, kDmrRoom);
        loaded->nxdn = readTable(nxdnFile, 0);
    });
    QThread* thread = loader;
    connect(thread, &QThread::finished, this, [this, thread, loaded, dmrSeen = dmrVersion, nxdnSeen = nxdnVersion] {
        thread->deleteLater();
        loader = nullptr;
        publish(*loaded, dmrSeen, nxdnSeen);
    });
    thread->start();
}

void UserDb::publish(Loaded& loaded, quint64 dmrSeen, quint64 nxdnSeen)
{
    if (loaded.dmr && dmrSeen == dmrVersion)
        dmr = std::move(*loaded.dmr);
    if (loaded.nxdn && nxdnSeen == nxdnVersion)
        nxdn = std::move(*loaded.nxdn);
    if (announceWhenLoaded) {
        announceWhenLoaded = false;
        emit refreshed(int(dmr.size()));
    }
}

void UserDb::refreshIfOlder(int hours)
{
    if (!isFresh(nxdnPath(), hours))
        download(Network::Nxdn, hours == 0);
    else if (nxdn.isEmpty())
        loadFromDisk();

    if (!isFresh(dmrPath(), hours)) {
        download(Network::Dmr, hours == 0);
        return;
    }
    // A fresh list not read yet is reported once it is.
    if (dmr.isEmpty() || loader) {
        announceWhenLoaded = true;
        loadFromDisk();
        return;
    }
    emit refreshed(int(dmr.size()));
}

void UserDb::download(Network network, bool forced)
{
    const QString path =
        network == Network::Dmr ? QStringLiteral("/static/user.csv") : QStringLiteral("/static/nxdn.csv");
    QNetworkReply* reply = getDirectory(net, baseUrl() + path, timeoutMs);
    connect(reply, &QNetworkReply::finished, this, [this, network, reply, forced] { onReply(network, reply, forced); });
}

void UserDb::onReply(Network network, QNetworkReply* reply, bool forced)
{
    reply->deleteLater();
    const bool isDmr = network == Network::Dmr;
    const QString prefix = isDmr ? QString() : QStringLiteral("NXDN: ");
    if (reply->error() != QNetworkReply::NoError) {
        emit failed(prefix + downloadError(reply, timeoutMs));
        return;
    }
    const QByteArray body = reply->readAll();
    const QString what = urlFileName(reply->url().toString());
    UserTable fresh = UserTable::fromCsv(body);
    UserTable& table = isDmr ? dmr : nxdn;
    QString problem = bodyProblem(what, reply, body);
    if (problem.isEmpty())
        problem = shrinkProblem(what, fresh.size(), table.size(), forced);
    if (!problem.isEmpty()) {
        emit failed(prefix + problem);
        return;
    }
    const QString path = isDmr ? dmrPath() : nxdnPath();
    table = std::move(fresh);
    ++(isDmr ? dmrVersion : nxdnVersion);
    if (replaceFile(path, table.toTsv()))
        writeStamp(path);
    emit refreshed(int(table.size()));
}

} // namespace zl
