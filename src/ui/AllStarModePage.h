#pragma once

#include "ui/BaseModePage.h"

#include <QElapsedTimer>
#include <QHash>
#include <QMetaObject>

class QLabel;
class QLineEdit;
class QVBoxLayout;

namespace zl::iax {
class IaxClient;
}
namespace zl::ui {
class AllStarNodeRow;
}

// The AllStar page: every enabled node is called, one of them (chosen here, not stored) is
// the active one that hears the microphone and the command line's DTMF.
class AllStarModePage : public BaseModePage {
    Q_OBJECT

public:
    // Tests only: the delay before the first calls go out (the window comes first).
    static void setStartDelay(int ms);

    explicit AllStarModePage(QWidget* parent = nullptr);
    ~AllStarModePage() override;

    bool isModeEnabled() const override;
    bool isModeConnected() const override;
    QString serverText() const override;
    QString targetText() const override;
    QString activeRowKey() const override;
    void setPttActive(bool on) override;
    void reloadConfig() override;

    zl::iax::IaxClient* client(const QString& key) const { return clients.value(key); }
    void setActive(const QString& key);
    // Sends the trimmed text as DTMF to the active node; the result line shows what happened.
    void sendCommand(const QString& text);
    QString commandResult() const;

private:
    void refreshRows();
    void startClients();
    void updateStatuses();
    void onPcm(const QString& key, const QByteArray& pcm);

    QVBoxLayout* rowsLayout = nullptr;
    QLineEdit* commandEdit = nullptr;
    QLabel* resultLabel = nullptr;
    QHash<QString, zl::iax::IaxClient*> clients;
    QHash<QString, zl::ui::AllStarNodeRow*> rows;
    QString activeKey;
    // Per node: time since the last received audio, to tell a new reception from the next frame.
    QHash<QString, QElapsedTimer> lastAudio;
    QMetaObject::Connection micConnection;
};
