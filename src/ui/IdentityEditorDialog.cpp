#include "ui/IdentityEditorDialog.h"

#include "aprs/AprsTables.h"
#include "ui/FieldCheck.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>
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
    if (modeKey == QLatin1String("aprs"))
        addAprsChoices(form);
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

void IdentityEditorDialog::addAprsChoices(QFormLayout* form)
{
    QLineEdit* callsign = fields.at(1);
    QLineEdit* symbol = fields.at(2);
    auto* ssid = new QComboBox;
    ssid->setObjectName(QStringLiteral("aprsSsid"));
    for (const zl::aprs::AprsChoice& choice : zl::aprs::ssidChoices())
        ssid->addItem(choice.value.isEmpty() ? choice.text : QStringLiteral("-%1  %2").arg(choice.value, choice.text),
                      choice.value);
    const QString current = callsign->text().section(QLatin1Char('-'), 1);
    ssid->setCurrentIndex(qMax(0, ssid->findData(current)));
    form->insertRow(2, QStringLiteral("SSID"), ssid);
    connect(ssid, &QComboBox::activated, callsign, [callsign, ssid] {
        const QString base = callsign->text().section(QLatin1Char('-'), 0, 0).trimmed();
        const QString value = ssid->currentData().toString();
        callsign->setText(value.isEmpty() ? base : base + QLatin1Char('-') + value);
    });

    auto* symbols = new QComboBox;
    symbols->setObjectName(QStringLiteral("aprsSymbol"));
    for (const zl::aprs::AprsChoice& choice : zl::aprs::symbolChoices())
        symbols->addItem(QStringLiteral("%1  %2").arg(choice.value, choice.text), choice.value);
    symbols->addItem(QStringLiteral("Custom…"));
    const int known = symbols->findData(symbol->text().trimmed());
    symbols->setCurrentIndex(known >= 0 ? known : symbols->count() - 1);
    symbol->setReadOnly(known >= 0);
    symbol->setPlaceholderText(QStringLiteral("table and code, e.g. /v"));
    if (auto* label = qobject_cast<QLabel*>(form->labelForField(symbol)))
        label->clear();
    form->insertRow(form->rowCount() - 1, QStringLiteral("Symbol"), symbols);
    connect(symbols, &QComboBox::activated, symbol, [symbol, symbols] {
        const QString value = symbols->currentData().toString();
        symbol->setReadOnly(!value.isEmpty());
        if (!value.isEmpty())
            symbol->setText(value);
        else
            symbol->setFocus();
    });
}
