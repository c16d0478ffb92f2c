#include "ui/IdentityEditorDialog.h"

#include "ui/FieldCheck.h"

#include <QCheckBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLineEdit>

IdentityEditorDialog::IdentityEditorDialog(const QString& modeKey, const zl::Identity& identity, QWidget* parent)
    : QDialog(parent), mode(modeKey), original(identity),
      autoConnect(new QCheckBox(
          QStringLiteral("Auto-connect at startup (run peer in parallel with other auto-connect identities)")))
{
    setWindowTitle(QStringLiteral("%1 — Identity").arg(zl::modeTitle(modeKey)));
    auto* form = new QFormLayout(this);
    const QStringList labels = zl::fieldLabels(modeKey);
    const QStringList values = {identity.label, identity.callsign, identity.id_field, identity.essid};
    for (int i = 0; i < labels.size(); ++i) {
        auto* edit = new QLineEdit(values.value(i));
        edit->setObjectName(QStringLiteral("identityField%1").arg(i));
        fields.append(edit);
        form->addRow(labels.at(i), edit);
        const QString label = labels.at(i);
        if (label.startsWith(QLatin1String("Callsign")))
            zl::ui::addFieldCheck(edit, form, zl::ui::checkCallsign);
        else if (label == QLatin1String("DMR-ID"))
            zl::ui::addFieldCheck(edit, form, zl::ui::checkDmrId);
        else if (label == QLatin1String("NXDN-ID"))
            zl::ui::addFieldCheck(edit, form, zl::ui::checkNxdnId);
    }
    autoConnect->setChecked(identity.auto_connect);
    form->addRow(autoConnect);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    form->addRow(buttons);
}

zl::Identity IdentityEditorDialog::identity() const
{
    zl::Identity result = original;
    result.label = fields.value(0)->text().trimmed();
    result.callsign = fields.value(1)->text().trimmed().toUpper();
    if (fields.size() > 2)
        result.id_field = fields.at(2)->text().trimmed();
    if (fields.size() > 3)
        result.essid = fields.at(3)->text().trimmed();
    result.auto_connect = autoConnect->isChecked();
    return result;
}
