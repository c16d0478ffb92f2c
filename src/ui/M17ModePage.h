#pragma once

#include "ui/BaseModePage.h"

#include <QHash>
#include <QJsonValue>
#include <QStringList>

class QTimer;
class QVBoxLayout;

namespace zl::m17 {
class M17Client;
class M17Voice;
} // namespace zl::m17

namespace zl::ui {
class M17ReflectorRow;
}

// The M17 page: one row per selected reflector, linked one at a time. The active row takes
// PTT and its received speech goes to the mixer. Clients start shortly after the page is
// built, so that the window is on screen before sockets open.
class M17ModePage : public BaseModePage {
    Q_OBJECT

public:
    explicit M17ModePage(QWidget* parent = nullptr);
    ~M17ModePage() override;

    bool isModeEnabled() const override;
    bool isModeConnected() const override;
    QString serverText() const override;
    QString targetText() const override;
    void setPttActive(bool on) override;
    QString activeRowKey() const override { return activeKey; }
    void reloadConfig() override;

    // Links the row's reflector, unlinking the one linked before.
    void connectTo(const QString& key);
    // Delay between construction and the start of the clients; tests shorten it.
    static void setStartDelay(int ms);

private slots:
    void onRowClicked(const QString& key);
    void onRowToggled(const QString& key, bool on);

private:
    struct Server {
        QString name;
        QString host;
        quint16 port = 0;
        bool enabled = false;
        QString module;
    };

    void start();
    void rebuildRows();
    void disconnectActive();
    void dropClient(const QString& key);
    zl::m17::M17Client* clientFor(const QString& key);
    void onClientState(const QString& key, int state);
    void onTalker(const QString& source, quint16 streamId);
    void storeRow(const QString& key, const char* field, const QJsonValue& value);
    QString rowName(const QString& key) const;
    // What a link depends on: a change means the client must link anew.
    QString linkData(const QString& key) const;

    QVBoxLayout* rowsLayout = nullptr;
    QTimer* startTimer = nullptr;
    bool started = false;
    QStringList order;
    QHash<QString, Server> servers;
    QHash<QString, zl::ui::M17ReflectorRow*> rows;
    QHash<QString, zl::m17::M17Client*> clients;
    QHash<QString, QString> linkedWith;
    QString activeKey;
    zl::m17::M17Voice* voice = nullptr;
    bool haveStream = false;
    quint16 lastStreamId = 0;
};
