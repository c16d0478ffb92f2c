#pragma once

#include <QWidget>

class QLabel;
class QTableWidget;

// The computer and its serial ports: which FTDI ports may be probed for a DV3000 stick.
class HardwareSettingsTab : public QWidget {
    Q_OBJECT

public:
    explicit HardwareSettingsTab(QWidget* parent = nullptr);

    // The board's model from /proc/cpuinfo when it names a Raspberry Pi, else empty.
    static QString raspberryPiModel(const QByteArray& cpuinfo);

public slots:
    void commit();

signals:
    void dirtied();

private slots:
    void refreshPorts();

private:
    QTableWidget* ports;
    QLabel* permissionHint;
    bool changed = false;
};
