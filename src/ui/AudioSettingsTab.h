#pragma once

#include <QWidget>

class QCheckBox;
class QComboBox;
class QSpinBox;

// The devices and levels every mode starts from; a mode's own choice on the main window
// overrides the devices and volumes.
class AudioSettingsTab : public QWidget {
    Q_OBJECT

public:
    explicit AudioSettingsTab(QWidget* parent = nullptr);

public slots:
    void commit();

signals:
    void dirtied();

private:
    QComboBox* micDevice;
    QComboBox* spkDevice;
    QSpinBox* micVolume;
    QSpinBox* spkVolume;
    QSpinBox* micGainDb;
    QSpinBox* spkBoostDb;
    QCheckBox* rxAgc;
    QSpinBox* jitterMs;
    bool changed = false;
};
