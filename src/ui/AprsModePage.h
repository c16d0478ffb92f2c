#pragma once

#include "aprs/AprsPacket.h"
#include "ui/BaseModePage.h"

#include <QHash>

class QCheckBox;
class QComboBox;
class QLineEdit;
class QListWidget;
class QTableWidget;
class QTableWidgetItem;

namespace zl::aprs {
class AprsBeacon;
class DmrBridge;
class AprsClient;
} // namespace zl::aprs

// The APRS page: the APRS-IS connection, messages to and from this station with their
// acknowledgements and a history kept in aprs_msgs.json, followed hashtag topics, and the
// stations heard with their positions, distances and bearings from this station's beacon.
class AprsModePage : public BaseModePage {
    Q_OBJECT

public:
    explicit AprsModePage(QWidget* parent = nullptr);
    ~AprsModePage() override;

    bool isModeEnabled() const override;
    bool isModeConnected() const override;
    QString serverText() const override;
    QString targetText() const override { return {}; }
    void reloadConfig() override;

    zl::aprs::AprsClient* client() const { return aprs; }

public slots:
    void onEnabledToggled(bool on);
    void onConnectClicked();
    void onSendClicked();

private:
    void onPacket(const zl::aprs::ParsedPacket& packet);
    void onMessageStatus(const QString& msgId, const QString& dest, const QString& status);
    void applySettings();
    QString ownCall() const;
    void addHistory(const QString& dir, const QString& from, const QString& to, const QString& text,
                    const QString& status, const QString& time = {});
    void addActivity(const QString& text);
    void matchTopics(const zl::aprs::ParsedPacket& packet);
    void loadHistory();
    void saveHistory() const;
    void showStatus(const QString& text, bool bad = false);

    zl::aprs::AprsClient* aprs = nullptr;
    zl::aprs::AprsBeacon* beacon = nullptr;
    zl::aprs::DmrBridge* bridge = nullptr;
    QCheckBox* enabledBox = nullptr;
    QComboBox* serverCombo = nullptr;
    QPushButton* connectButton = nullptr;
    QLabel* statusLabel = nullptr;
    QLineEdit* destEdit = nullptr;
    QLineEdit* textEdit = nullptr;
    QTableWidget* history = nullptr;
    QTableWidget* topics = nullptr;
    QListWidget* activity = nullptr;
    // The status cell of each sent message still waiting for its answer, by message id.
    QHash<QString, QTableWidgetItem*> pending;
};
