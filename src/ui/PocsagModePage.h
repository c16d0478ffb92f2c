#pragma once

#include "ui/BaseModePage.h"

#include <QJsonValue>
#include <QSet>

class QCheckBox;
class QComboBox;
class QLineEdit;
class QTableWidget;

namespace zl::pocsag {
class DapnetClient;
}

// The POCSAG page: pages scheduled for the DAPNET transmitter login, those to this station's
// own RICs marked, kept in pocsag_pages.json; and a form that sends a page with the account.
class PocsagModePage : public BaseModePage {
    Q_OBJECT

public:
    explicit PocsagModePage(QWidget* parent = nullptr);
    ~PocsagModePage() override;

    bool isModeEnabled() const override;
    bool isModeConnected() const override;
    QString serverText() const override;
    QString targetText() const override;
    void reloadConfig() override;

    zl::pocsag::DapnetClient* client() const { return dapnet; }

public slots:
    void onEnabledToggled(bool on);
    void onConnectClicked();
    void onSendClicked();

private:
    void onPageReceived(uint ric, int type, int func, const QString& text);
    void onStateChanged();
    // True when the server or the transmitter login differs from the one applied before.
    bool applySettings();
    bool clientActive() const;
    void storeKey(const QString& key, const QJsonValue& value);
    void addRow(const QString& time, uint ric, bool mine, const QString& type, const QString& text);
    void loadHistory();
    void saveHistory() const;
    void showStatus(const QString& text, bool bad = false);

    zl::pocsag::DapnetClient* dapnet = nullptr;
    QCheckBox* enabledBox = nullptr;
    QComboBox* serverCombo = nullptr;
    QComboBox* identityCombo = nullptr;
    QPushButton* connectButton = nullptr;
    QLabel* statusLabel = nullptr;
    QLineEdit* toEdit = nullptr;
    QLineEdit* groupEdit = nullptr;
    QLineEdit* textEdit = nullptr;
    QCheckBox* emergencyBox = nullptr;
    QTableWidget* pages = nullptr;
    QSet<uint> ownRics;
    QString appliedLogin;
};
