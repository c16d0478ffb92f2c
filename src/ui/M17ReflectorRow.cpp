#include "ui/M17ReflectorRow.h"

#include <QLineEdit>
#include <QRegularExpressionValidator>

namespace zl::ui {

M17ReflectorRow::M17ReflectorRow(const QString& key, QWidget* parent) : ReflectorRow(key, parent)
{
    setObjectName(QStringLiteral("m17Row_") + key);
    moduleEdit = addText(QStringLiteral("module"), QString(), QStringLiteral("Module of the reflector, one letter"));
    moduleEdit->setMaxLength(1);
    moduleEdit->setMaximumWidth(32);
    moduleEdit->setValidator(new QRegularExpressionValidator(QRegularExpression(QStringLiteral("[A-Za-z]")), this));
    connect(this, &ReflectorRow::fieldChanged, this, [this](const QString& rowKey, const QString& field) {
        if (field != QLatin1String("module"))
            return;
        moduleEdit->setText(module());
        emit moduleChanged(rowKey, module());
    });
}

void M17ReflectorRow::show(const QString& name, const QString& address, bool enabled, const QString& shownModule)
{
    ReflectorRow::show(name, address, enabled, QJsonObject{{QStringLiteral("module"), shownModule.toUpper()}});
}

QString M17ReflectorRow::module() const
{
    const QString text = moduleEdit->text().trimmed().toUpper();
    return text.isEmpty() ? QStringLiteral("A") : text.left(1);
}

} // namespace zl::ui
