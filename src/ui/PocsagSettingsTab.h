#pragma once

#include "ui/ModeSettingsTab.h"

// The DAPNET servers, with the transmitter login that receives pages and the account that sends them.
class PocsagSettingsTab : public ModeSettingsTab {
    Q_OBJECT

public:
    explicit PocsagSettingsTab(QWidget* parent = nullptr);
};
