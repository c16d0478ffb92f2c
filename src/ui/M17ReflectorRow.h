#pragma once

#include "ui/ReflectorRow.h"

class QLineEdit;

namespace zl::ui {

// An M17 reflector row: the module letter it links to. A click on the row asks the page to
// link to it (or, on the active row, to unlink).
class M17ReflectorRow : public ReflectorRow {
    Q_OBJECT

public:
    explicit M17ReflectorRow(const QString& key, QWidget* parent = nullptr);

    // Name, address and the stored module.
    void show(const QString& name, const QString& address, bool enabled, const QString& module);
    // The module typed, upper case; "A" when empty.
    QString module() const;

signals:
    void moduleChanged(const QString& key, const QString& module);

private:
    QLineEdit* moduleEdit = nullptr;
};

} // namespace zl::ui
