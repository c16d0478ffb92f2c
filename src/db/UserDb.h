#pragma once

#include "db/UserTable.h"

#include <QObject>
#include <QPointer>
#include <QString>

class QNetworkAccessManager;
class QNetworkReply;
class QThread;

namespace zl {

// Turns DMR and NXDN subscriber ids into callsigns and names, from the public user lists kept
// in the cache folder. The window creates the one instance; until then instance() is null.
class UserDb : public QObject {
    Q_OBJECT

public:
    static UserDb* instance();

    explicit UserDb(QObject* parent = nullptr);
    ~UserDb() override;

    // Fills both tables from the cache files. The files are read on a worker thread and the
    // tables published here when done: a full DMR list takes long enough on a slow or busy
    // machine to hold up the window, and until then lookups find nothing, as before any list.
    void loadFromDisk();
    // Downloads each list whose copy is older than `hours`; 0 downloads both, and then accepts
    // a list smaller than the one in use (the user asked for exactly this list).
    void refreshIfOlder(int hours);

    QString callsignOf(int id) const { return dmr.callsignOf(id); }
    QString nameOf(int id) const { return dmr.nameOf(id); }
    QString nxdnCallsignOf(int id) const { return nxdn.callsignOf(id); }
    QString nxdnNameOf(int id) const { return nxdn.nameOf(id); }
    qsizetype userCount() const { return dmr.size(); }
    qsizetype nxdnUserCount() const { return nxdn.size(); }

    static QString dmrPath();
    static QString nxdnPath();
    // Base of the subscriber lists, /static/user.csv and /static/nxdn.csv below it.
    static QString baseUrl();
    void setTransferTimeout(int ms) { timeoutMs = ms; }

signals:
    // The size of the table that was just refreshed, whichever network it belongs to.
    void refreshed(int users);
    void failed(const QString& reason);

private:
    enum class Network { Dmr, Nxdn };
    struct Loaded;
    void publish(Loaded& loaded, quint64 dmrSeen, quint64 nxdnSeen);
    void download(Network network, bool forced);
    void onReply(Network network, QNetworkReply* reply, bool forced);

    QNetworkAccessManager* net;
    UserTable dmr;
    UserTable nxdn;
    // Bumped whenever a download replaces a table, so that a slower read of the old file
    // does not put the old list back.
    quint64 dmrVersion = 0;
    quint64 nxdnVersion = 0;
    QPointer<QThread> loader;
    bool announceWhenLoaded = false;
    int timeoutMs = 30000;
};

} // namespace zl
