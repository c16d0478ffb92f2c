#include "ui/M17SettingsTab.h"

#include "ui/SettingsFields.h"

#include <QLineEdit>
#include <QRegularExpressionValidator>

M17SettingsTab::M17SettingsTab(QWidget* parent)
    : ModeSettingsTab(QStringLiteral("M17"), QStringLiteral("m17"),
                      QStringLiteral("The M17 reflectors the M17 page offers, and the module it links to on each."),
                      parent)
{
    zl::ui::SettingsFields* fields = serverFields();
    QLineEdit* module = fields->text(QStringLiteral("module"), QStringLiteral("Module"), {}, QStringLiteral("A"));
    module->setMaxLength(1);
    module->setValidator(new QRegularExpressionValidator(QRegularExpression(QStringLiteral("[A-Za-z]")), module));
    // The reflector knows its modules by capital letters only.
    connect(module, &QLineEdit::textEdited, module, [module](const QString& text) {
        if (text != text.toUpper())
            module->setText(text.toUpper());
    });
    module->setToolTip(QStringLiteral("Module of the reflector, one letter"));
    fields->flag(QStringLiteral("enabled"), QStringLiteral("Connect this reflector automatically"));
}
