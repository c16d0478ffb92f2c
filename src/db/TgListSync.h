#pragma once

#include <QJsonArray>
#include <QObject>
#include <QString>

#include <optional>

class QNetworkAccessManager;
class QNetworkReply;

namespace zl {

// Keeps the talkgroup list of each DMR network that publishes one as a local JSON file, for
// the talkgroup picker. Both published layouts become one: objects with id, type, name and
// description.
class TgListSync : public QObject {
    Q_OBJECT

public:
    explicit TgListSync(QObject* parent = nullptr);

    // Fetches each network's list whose copy is older than `hours`; 0 fetches all and accepts
    // a list smaller than the one in use.
    void syncIfOlder(int hours);
    void fetchNetwork(const QString& network, bool forced = true);

    // BrandMeister's text list: "id;type;name;description" a line.
    static QJsonArray parseText(const QByteArray& body);
    // TGIF's JSON array, descriptions in Base64; nullopt when the body is no array.
    static std::optional<QJsonArray> parseTgif(const QByteArray& body);
    // The local file of a network, from any of the spellings its name comes in.
    static QString fileForNetwork(const QString& network);
    void setTransferTimeout(int ms) { timeoutMs = ms; }

signals:
    void networkUpdated(const QString& network, int entries);
    void networkFailed(const QString& network, const QString& reason);

private:
    void onReply(const QString& network, QNetworkReply* reply, bool forced);

    QNetworkAccessManager* net;
    int timeoutMs = 15000;
};

} // namespace zl
