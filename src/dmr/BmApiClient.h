#pragma once

#include "dmr/BmProfile.h"

#include <QObject>
#include <QString>

class QNetworkAccessManager;
class QNetworkReply;
class QNetworkRequest;

namespace zl::dmr {

// The BrandMeister REST interface for one hotspot: its profile, static talkgroups added and
// removed, dynamic ones dropped. No timer and no retry: the owner asks again when it needs to.
class BmApiClient : public QObject {
    Q_OBJECT

public:
    explicit BmApiClient(QObject* parent = nullptr);

    void setBase(const QString& origin) { base = origin; }
    void setApiKey(const QString& key) { apiKey = key; }
    void setDeviceId(quint32 id) { deviceId = id; }

    // "https://api." and the last two labels of the master's host name.
    static QString apiBaseForServer(const QString& server);
    // Sends every client to a loopback service instead (empty: the real one).
    static void setBaseForTests(const QString& origin);

    void fetchProfile();
    void addStatic(quint32 tg, int slot);
    void removeStatic(quint32 tg, int slot);
    void dropDynamic(int slot);

signals:
    void profileFetched(const zl::dmr::BmProfile& profile);
    void staticTalkgroups(const QList<zl::dmr::BmStatic>& list);
    void actionDone(bool ok, const QString& msg);
    void errorReported(const QString& msg);

private:
    bool ready();
    QNetworkRequest request(const QString& path) const;
    void onActionReply(QNetworkReply* reply, const QString& label);
    void onProfileReply(QNetworkReply* reply);

    QNetworkAccessManager* network;
    QString base;
    QString apiKey;
    quint32 deviceId = 0;
};

} // namespace zl::dmr
