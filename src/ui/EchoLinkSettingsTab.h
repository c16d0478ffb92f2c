#pragma once

#include "ui/SectionSettingsTab.h"

// The EchoLink account, the directory and who may connect to this station.
class EchoLinkSettingsTab : public SectionSettingsTab {
    Q_OBJECT

public:
    explicit EchoLinkSettingsTab(QWidget* parent = nullptr);
};
