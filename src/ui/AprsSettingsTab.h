#pragma once

#include "ui/SectionSettingsTab.h"

// The APRS-IS login, the server, the position beacon and the bridge to DMR short messages.
class AprsSettingsTab : public SectionSettingsTab {
    Q_OBJECT

public:
    explicit AprsSettingsTab(QWidget* parent = nullptr);
};
