#pragma once

#include "ui/BaseModePage.h"

class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QProgressBar;
class QPushButton;
class QSlider;
class QSpinBox;

// The page of a mode without a network client ("D-STAR", "P25"): its settings are kept,
// Connect only flips a local flag, and nothing is ever sent.
class ModePage : public BaseModePage {
    Q_OBJECT

public:
    explicit ModePage(const QString& mode, QWidget* parent = nullptr);

    bool isModeEnabled() const override;
    bool isModeConnected() const override { return connected; }
    QString serverText() const override;
    QString targetText() const override;
    void reloadConfig() override;

    // Levels in percent, shown on bars and in dB.
    void setMeters(int tx, int rx);
    // The target field's label for a mode.
    static QString targetLabel(const QString& mode);

private slots:
    void onEnabledToggled(bool on);
    void onConnectClicked();
    void onAudioFieldChanged();
    void onIdentityChanged(const QString& label);

private:
    void storeFields();
    void setConnected(bool up);

    bool connected = false;
    QCheckBox* enabledBox = nullptr;
    QLabel* statusDot = nullptr;
    QLabel* statusLabel = nullptr;
    QComboBox* identityCombo = nullptr;
    QComboBox* serverCombo = nullptr;
    QLineEdit* targetEdit = nullptr;
    QSpinBox* tsSpin = nullptr;
    QSpinBox* ccSpin = nullptr;
    QPushButton* connectButton = nullptr;
    QPushButton* prioButton = nullptr;
    QSlider* micGain = nullptr;
    QSlider* spkBoost = nullptr;
    QProgressBar* txBar = nullptr;
    QProgressBar* rxBar = nullptr;
    QLabel* txDb = nullptr;
    QLabel* rxDb = nullptr;
};
