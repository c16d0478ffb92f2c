#pragma once

#include "ui/ReflectorRow.h"

namespace zl::ui {

// A YSF reflector row: receive DG-ID filter and transmit DG-ID.
class YsfReflectorRow : public ReflectorRow {
    Q_OBJECT

public:
    explicit YsfReflectorRow(const QString& key, QWidget* parent = nullptr);
};

} // namespace zl::ui
