#pragma once

#include "ui/BaseModePage.h"

#include <QHash>
#include <QJsonObject>
#include <QStringList>

class QTimer;
class QVBoxLayout;

namespace zl {
class PolledUdpLink;
}

namespace zl::ui {
class ReflectorRow;
}

// Common part of the YSF and NXDN pages: one row per selected reflector, every enabled row
// linked by its own client, and one active row that takes PTT and whose speech is heard.
// Clients start shortly after the page is built, so that the window is on screen before
// sockets open.
class ReflectorModePage : public BaseModePage {
    Q_OBJECT

public:
    ~ReflectorModePage() override;

    bool isModeEnabled() const override;
    bool isModeConnected() const override;
    QString serverText() const override;
    QString targetText() const override;
    QString activeRowKey() const override { return activeKey; }
    void reloadConfig() override;

    // Makes a row the one that takes PTT and audio.
    void makeActive(const QString& key);
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

    ReflectorModePage(const QString& mode, QWidget* parent);
    // Builds the rows; called by the subclass once it is whole.
    void begin();

    virtual zl::ui::ReflectorRow* createRow(const QString& key) = 0;
    virtual zl::PolledUdpLink* createClient(const Server& server) = 0;
    // What a link depends on: a change means the client must link anew.
    virtual QString linkData(const Server& server) const = 0;
    // The active row changed (its values may have too).
    virtual void activeChanged(const Server& server) = 0;
    // A frame from the active reflector, for the voice path.
    virtual void voiceFrame(const QByteArray& frame) = 0;
    // The callsign this mode links with; empty when no identity is configured.
    QString ownCallsign() const;

    Server activeServer() const { return servers.value(activeKey); }
    zl::PolledUdpLink* activeClient() const { return clients.value(activeKey); }
    void playPcm(const QByteArray& pcm);
    void talkerHeard(const QString& call);

private slots:
    void onRowToggled(const QString& key, bool on);

private:
    void start();
    void rebuildRows();
    void startClient(const QString& key);
    void dropClient(const QString& key);
    void updateRow(const QString& key);
    void storeRow(const QString& key, const QString& field, const QJsonValue& value);
    QString rowName(const QString& key) const;
    QString statusWords() const;

    QVBoxLayout* rowsLayout = nullptr;
    QTimer* startTimer = nullptr;
    bool started = false;
    QStringList order;
    QHash<QString, Server> servers;
    QHash<QString, zl::ui::ReflectorRow*> rows;
    QHash<QString, zl::PolledUdpLink*> clients;
    QHash<QString, QString> linkedWith;
    QHash<QString, QString> errors;
    QString activeKey;
};
