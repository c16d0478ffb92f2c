#pragma once

#include <QJsonArray>
#include <QList>
#include <QObject>
#include <QString>

namespace zl {

// One server a mode can connect to.
struct ServerEntry {
    QString id;
    QString name;
    QString host;
    int port = 0;
    QString password;
    bool selected = false;
    bool official = false;
};

// The servers of one mode: the official list (cache folder first, then the shipped copy)
// followed by the user's own, and which of them the user ticked. A short-lived snapshot:
// construct one, read or change it, throw it away. Every change is saved at once.
// The official list is the last download (HostListSync), else the installed copy, else the
// published list shipped with the program.
class ServerRegistry : public QObject {
    Q_OBJECT

public:
    explicit ServerRegistry(const QString& mode, QObject* parent = nullptr);

    // Selected official entries in file order, then selected user entries in list order.
    QList<ServerEntry> selected() const;
    const QList<ServerEntry>& official() const { return officialList; }
    const QList<ServerEntry>& user() const { return userList; }

    // Adds a server, or merges into the user entry with the same host and port; the id.
    QString addUserServer(ServerEntry e);
    void updateUserServer(const QString& id, const ServerEntry& e);
    void removeUserServer(const QString& id);
    void setSelected(const QString& id, bool on);

    // Where the official list of a mode is looked for, in order.
    static QString cachePath(const QString& mode);
    static QString sharePath(const QString& mode);
    // The official list of a mode: the cache copy, else the installed one, else the snapshot of
    // the published list shipped with the program.
    static QJsonArray officialArray(const QString& mode);
    static QJsonArray shippedArray(const QString& mode);

signals:
    void changed();

private:
    void loadOfficial();
    void loadUser();
    void save();

    QString modeName;
    QList<ServerEntry> officialList;
    QList<ServerEntry> userList;
};

} // namespace zl
