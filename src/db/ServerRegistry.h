#pragma once

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
