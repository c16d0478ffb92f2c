#pragma once

#include "ui/ModeSettingsTab.h"

// The YSF reflectors, with the DG-IDs used on each.
class YsfSettingsTab : public ModeSettingsTab {
    Q_OBJECT

public:
    explicit YsfSettingsTab(QWidget* parent = nullptr);
};
