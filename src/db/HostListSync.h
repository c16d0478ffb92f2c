#pragma once

#include "db/HostListFormat.h"

#include <QObject>
#include <QString>

class QNetworkAccessManager;
class QNetworkReply;

namespace zl {

// Fetches the published server lists of the modes into the cache folder, where ServerRegistry
// finds them, and remembers in last_sync.json when each was fetched. A list that fails, or
// that is no list at all, leaves the old file and its date, so the next start tries again.
class HostListSync : public QObject {
    Q_OBJECT

public:
    explicit HostListSync(QObject* parent = nullptr);

    // Fetches every mode whose list is older than `hours`; 0 fetches all, and then a smaller
    // list is accepted too (the user asked for exactly this list).
    void syncIfOlder(int hours);
    // Fetches this mode's list now, as asked for by the user.
    void syncMode(const QString& mode);

    // Base of the published lists; the files are under /downloads/.
    static QString baseUrl();
    void setTransferTimeout(int ms) { timeoutMs = ms; }

signals:
    void modeUpdated(const QString& mode, int entries);
    void modeFailed(const QString& mode, const QString& reason);
    void allDone();

private:
    void fetch(const HostSource& source, bool forced);
    void onReply(const HostSource& source, QNetworkReply* reply, bool forced);
    void finishOne();

    QNetworkAccessManager* net;
    int pending = 0;
    int timeoutMs = 15000;
};

} // namespace zl
