#pragma once

#include "ui/BaseModePage.h"

#include <QHash>

class QComboBox;
class QLineEdit;
class QTableWidget;
class QVBoxLayout;

namespace zl::ui {
class SmsPeerRow;
}

// The DMR SMS page: text messages over DMR data calls through one of the running DMR peers (a
// click on its row picks it), in the encoding the receiving radios read, with received and sent
// messages kept in dmr_sms.json.
class DmrSmsPage : public BaseModePage {
    Q_OBJECT

public:
    explicit DmrSmsPage(QWidget* parent = nullptr);
    ~DmrSmsPage() override;

    bool isModeEnabled() const override;
    bool isModeConnected() const override;
    QString serverText() const override;
    QString targetText() const override;
    void reloadConfig() override;

public slots:
    void onSendClicked();

private:
    void refreshPeers();
    void choosePeer(const QString& label);
    void onReceived(const QString& peerLabel, uint srcId, uint dstId, bool privateCall, const QString& text,
                    const QString& format);
    void onSent(const QString& peerLabel, uint dstId, const QString& text);
    void addHistory(const QStringList& cells);
    void loadHistory();
    void saveHistory() const;
    void showStatus(const QString& text, bool bad = false);

    QVBoxLayout* peerList = nullptr;
    QHash<QString, zl::ui::SmsPeerRow*> rows;
    QLabel* noPeers = nullptr;
    QLineEdit* toEdit = nullptr;
    QLineEdit* textEdit = nullptr;
    QComboBox* formatCombo = nullptr;
    QLabel* statusLabel = nullptr;
    QTableWidget* history = nullptr;
};
