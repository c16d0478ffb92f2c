#pragma once

#include "ui/ReflectorRow.h"

namespace zl::ui {

// An NXDN reflector row: talkgroup, radio access number, callsign and radio id.
class NxdnReflectorRow : public ReflectorRow {
    Q_OBJECT

public:
    explicit NxdnReflectorRow(const QString& key, QWidget* parent = nullptr);
};

} // namespace zl::ui
