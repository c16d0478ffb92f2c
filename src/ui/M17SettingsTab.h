#pragma once

#include "ui/ModeSettingsTab.h"

// The M17 reflectors, with the module each one links to.
class M17SettingsTab : public ModeSettingsTab {
    Q_OBJECT

public:
    explicit M17SettingsTab(QWidget* parent = nullptr);
};
