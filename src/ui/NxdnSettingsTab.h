#pragma once

#include "ui/ModeSettingsTab.h"

// The NXDN reflectors, with the talk group, RAN and the identity used on each.
class NxdnSettingsTab : public ModeSettingsTab {
    Q_OBJECT

public:
    explicit NxdnSettingsTab(QWidget* parent = nullptr);
};
