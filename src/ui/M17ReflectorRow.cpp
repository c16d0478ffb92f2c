#include "ui/M17ReflectorRow.h"

#include <QLineEdit>
#include <QRegularExpressionValidator>

namespace zl::ui {

M17ReflectorRow::M17ReflectorRow(const QString& key, QWidget* parent) : ReflectorRow(key, parent)
{
    setObjectName(QStringLiteral("m17Row_") + key);
    QLineEdit* module =
        addText(QStringLiteral("module"), QString(), QStringLiteral("Module of the reflector, one letter"));
    module->setMaxLength(1);
    module->setMaximumWidth(32);
    module->setValidator(new QRegularExpressionValidator(QRegularExpression(QStringLiteral("[A-Za-z]")), this));
    connect(module, &QLineEdit::textEdited, module, [module](const QString& text) { module->setText(text.toUpper()); });
}

} // namespace zl::ui
