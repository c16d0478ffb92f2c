#pragma once

#include "ui/BaseModePage.h"

#include <QDateTime>
#include <QHash>
#include <QMetaObject>

class QDialog;
class QNetworkAccessManager;
class QTimer;
class QVBoxLayout;

namespace zl::svx {
class SvxReflectorClient;
}
namespace zl::ui {
class SvxServerRow;
}

// The SvxLink page: every enabled reflector runs at once, the default one takes PTT. A
// status poll of the default reflector's web page gives the locations of its nodes, which
// fill the country field of the last-heard list.
class SvxLinkModePage : public BaseModePage {
    Q_OBJECT

public:
    // Delays of the first client start and status poll and the poll period; tests shorten them.
    struct Timing {
        int startMs = 1500;
        int firstPollMs = 1500;
        int pollMs = 20000;
    };
    static void setTiming(const Timing& timing);

    explicit SvxLinkModePage(QWidget* parent = nullptr);
    ~SvxLinkModePage() override;

    bool isModeEnabled() const override;
    bool isModeConnected() const override;
    QString serverText() const override;
    QString targetText() const override;
    QString activeRowKey() const override;
    void setPttActive(bool on) override;
    void reloadConfig() override;

    zl::svx::SvxReflectorClient* client(const QString& key) const { return clients.value(key); }
    // Location of a callsign on a reflector, from its status page; "" when unknown.
    QString locationOf(const QString& key, const QString& callsign) const;
    QDialog* nodeListDialog();

public slots:
    void refreshNodes();
    void pollStatus();

private:
    void startClients();
    void startClient(const QString& key);
    void stopClient(const QString& key);
    void setActive(const QString& key);
    void updateStatuses();
    QString statusUrl(const QString& key) const;
    bool isOwnCallsign(const QString& key, const QString& callsign) const;
    void onTalkerStart(const QString& key, uint tg, const QString& callsign);
    void onTalkerStop(const QString& key, uint tg, const QString& callsign);

    QVBoxLayout* rowsLayout = nullptr;
    QHash<QString, zl::svx::SvxReflectorClient*> clients;
    QHash<QString, zl::ui::SvxServerRow*> rows;
    QString activeKey;
    QTimer* pollTimer = nullptr;
    QNetworkAccessManager* http = nullptr;
    // Per reflector: callsign to location.
    QHash<QString, QHash<QString, QString>> locations;
    // Per reflector: callsign to the talk group its status page reports.
    QHash<QString, QHash<QString, uint>> nodeTgs;
    // Per reflector and callsign: when the talker started.
    QHash<QString, QDateTime> talkStarts;
    QMetaObject::Connection micConnection;
};
