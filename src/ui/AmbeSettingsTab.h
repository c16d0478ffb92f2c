#pragma once

#include <QWidget>

class QCheckBox;
class QLabel;
class QLineEdit;
class QListWidget;
class QTableWidget;

// Where AMBE speech comes from: the vocoders the pool has now, remote AMBEservers, and the
// MD380 software vocoder with the user's own firmware images.
class AmbeSettingsTab : public QWidget {
    Q_OBJECT

public:
    explicit AmbeSettingsTab(QWidget* parent = nullptr);

public slots:
    void commit();

signals:
    void dirtied();

private slots:
    void refreshChips();
    void addServer();
    void chooseFirmware();
    void checkFirmware();

private:
    QTableWidget* chips;
    QListWidget* servers;
    QLineEdit* serverHost;
    QLineEdit* serverPort;
    QCheckBox* md380Enabled;
    QLineEdit* firmwareDir;
    QLabel* firmwareStatus;
    bool changed = false;
};
