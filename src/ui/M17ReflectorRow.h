#pragma once

#include "ui/ReflectorRow.h"

namespace zl::ui {

// An M17 reflector row: the module letter it links to, upper case as typed. A click on the
// row asks the page to link to it (or, on the active row, to unlink).
class M17ReflectorRow : public ReflectorRow {
    Q_OBJECT

public:
    explicit M17ReflectorRow(const QString& key, QWidget* parent = nullptr);
};

} // namespace zl::ui
