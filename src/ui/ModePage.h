#pragma once

#include "ui/BaseModePage.h"

class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QSlider;
class QSpinBox;

// The page of a mode without a network client ("D-STAR", "P25"): its settings are kept, it
// says plainly that nothing is sent or received, and it never shows a connection.
class ModePage : public BaseModePage {
    Q_OBJECT

public:
    explicit ModePage(const QString& mode, QWidget* parent = nullptr);

    bool isModeEnabled() const override;
    bool isModeConnected() const override { return false; }
    bool hasNetworkClient() const override { return false; }
    QString serverText() const override;
    QString targetText() const override;
    void reloadConfig() override;

    // The target field's label for a mode.
    static QString targetLabel(const QString& mode);

private slots:
    void onEnabledToggled(bool on);
    void onAudioFieldChanged();
    void onIdentityChanged(const QString& label);

private:
    void storeFields();

    QCheckBox* enabledBox = nullptr;
    QComboBox* identityCombo = nullptr;
    QComboBox* serverCombo = nullptr;
    QLineEdit* targetEdit = nullptr;
    QSpinBox* tsSpin = nullptr;
    QSpinBox* ccSpin = nullptr;
    QPushButton* prioButton = nullptr;
    QSlider* micGain = nullptr;
    QSlider* spkBoost = nullptr;
};
