#pragma once

#include "ui/BaseModePage.h"

#include <QHash>
#include <QJsonObject>
#include <QStringList>

class QTimer;
class QVBoxLayout;

namespace zl::ui {
class ReflectorRow;
}

// Common part of the reflector pages (M17, YSF, NXDN): one row per selected reflector with the
// fields it stores, and one active row that takes PTT and whose speech is heard. How rows link
// is the subclass's. Clients start shortly after the page is built, so that the window is on
// screen before sockets open.
class ReflectorModePage : public BaseModePage {
    Q_OBJECT

public:
    bool isModeEnabled() const override;
    QString serverText() const override;
    QString targetText() const override;
    QString activeRowKey() const override { return activeKey; }
    void reloadConfig() override;

    // Delay between construction and the start of the clients; tests shorten it.
    static void setStartDelay(int ms);

protected:
    struct Server {
        QString name;
        QString host;
        quint16 port = 0;
        bool enabled = false;
        QJsonObject values; // the row's stored fields
    };

    ReflectorModePage(const QString& mode, const QString& title, QWidget* parent);
    // Builds the rows; called by the subclass once it is whole.
    void begin();

    virtual zl::ui::ReflectorRow* createRow(const QString& key) = 0;
    // What a link depends on: a change means the client must link anew.
    virtual QString linkData(const Server& server) const = 0;
    // The start delay is over: open the links.
    virtual void start() = 0;
    virtual void rowClicked(const QString& key) = 0;
    // The user turned an enabled row on after the start.
    virtual void rowEnabled(const QString& key) = 0;
    // What the enabled row's link depends on changed while linked (or, on a rebuild, it has
    // no link yet).
    virtual void relink(const QString& key) = 0;
    // The row is off or gone: its client goes.
    virtual void dropClient(const QString& key) = 0;
    // The rows were read anew from the configuration.
    virtual void rowsRebuilt() {}
    // The page's status line.
    virtual QString statusWords() const = 0;
    // The active row changed (its values may have too).
    virtual void activeChanged(const Server& server) { Q_UNUSED(server); }

    // The callsign this mode links with; empty when no identity is configured.
    QString ownCallsign() const;
    QString rowName(const QString& key) const;
    Server activeServer() const { return servers.value(activeKey); }
    bool isStarted() const { return started; }
    // Stores a field of the row, or of the mode's section when the key is empty.
    void storeRow(const QString& key, const QString& field, const QJsonValue& value);
    void playPcm(const QByteArray& pcm);
    void talkerHeard(const QString& call);

    QStringList order;
    QHash<QString, Server> servers;
    QHash<QString, zl::ui::ReflectorRow*> rows;
    // The link data each client was started with.
    QHash<QString, QString> linkedWith;
    QString activeKey;

private slots:
    void onRowToggled(const QString& key, bool on);

private:
    void rebuildRows();

    QVBoxLayout* rowsLayout = nullptr;
    QTimer* startTimer = nullptr;
    bool started = false;
};
