#include "ui/SettingsFields.h"

#include <QAction>
#include <QCheckBox>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QFormLayout>
#include <QIcon>
#include <QLineEdit>
#include <QSpinBox>

namespace zl::ui {

namespace {

// Numbers may have been stored as text by hand or by older versions.
int intOf(const QJsonValue& v, int fallback)
{
    if (v.isDouble())
        return v.toInt(fallback);
    bool ok = false;
    const int n = v.toString().trimmed().toInt(&ok);
    return ok ? n : fallback;
}

} // namespace

void maskWithShowToggle(QLineEdit* field)
{
    field->setEchoMode(QLineEdit::Password);
    QAction* show = field->addAction(QIcon(), QLineEdit::TrailingPosition);
    show->setText(QStringLiteral("show"));
    show->setToolTip(QStringLiteral("Show or hide the text"));
    show->setObjectName(field->objectName() + QStringLiteral("Show"));
    show->setCheckable(true);
    QObject::connect(show, &QAction::toggled, field,
                     [field](bool on) { field->setEchoMode(on ? QLineEdit::Normal : QLineEdit::Password); });
}

SettingsFields::SettingsFields(QFormLayout* layout, QObject* parent) : QObject(parent), form(layout)
{
}

void SettingsFields::add(const QString& label, QWidget* widget, Field field)
{
    widget->setObjectName(field.key);
    form->addRow(label, widget);
    field.shown = field.get();
    fields.append(std::move(field));
}

void SettingsFields::onChanged()
{
    if (!loading)
        emit edited();
}

QLineEdit* SettingsFields::text(const QString& key, const QString& label, const FieldRule& rule,
                                const QString& fallback)
{
    auto* edit = new QLineEdit;
    add(label, edit,
        {key,
         [edit] { return QJsonValue(edit->text().trimmed()); },
         [edit, fallback](const QJsonValue& v) {
             edit->setText(v.isUndefined() ? fallback : v.toVariant().toString());
         },
         {}});
    if (rule)
        addFieldCheck(edit, form, rule);
    connect(edit, &QLineEdit::textEdited, this, &SettingsFields::onChanged);
    return edit;
}

QLineEdit* SettingsFields::secret(const QString& key, const QString& label)
{
    auto* edit = new QLineEdit;
    // A password keeps its blanks: they may be part of it.
    add(label, edit,
        {key,
         [edit] { return QJsonValue(edit->text()); },
         [edit](const QJsonValue& v) { edit->setText(v.toString()); },
         {}});
    maskWithShowToggle(edit);
    connect(edit, &QLineEdit::textEdited, this, &SettingsFields::onChanged);
    return edit;
}

QSpinBox* SettingsFields::number(const QString& key, const QString& label, int min, int max, int fallback,
                                 const FieldRule& rule)
{
    auto* spin = new QSpinBox;
    spin->setRange(min, max);
    spin->setValue(fallback);
    add(label, spin,
        {key,
         [spin] { return QJsonValue(spin->value()); },
         [spin, fallback](const QJsonValue& v) { spin->setValue(intOf(v, fallback)); },
         {}});
    if (rule)
        addFieldCheck(spin, form, rule);
    connect(spin, &QSpinBox::valueChanged, this, &SettingsFields::onChanged);
    return spin;
}

QDoubleSpinBox* SettingsFields::decimal(const QString& key, const QString& label, double min, double max, int decimals)
{
    auto* spin = new QDoubleSpinBox;
    spin->setRange(min, max);
    spin->setDecimals(decimals);
    add(label, spin,
        {key,
         [spin] { return QJsonValue(spin->value()); },
         [spin](const QJsonValue& v) { spin->setValue(v.toVariant().toDouble()); },
         {}});
    connect(spin, &QDoubleSpinBox::valueChanged, this, &SettingsFields::onChanged);
    return spin;
}

QCheckBox* SettingsFields::flag(const QString& key, const QString& label, bool fallback)
{
    auto* box = new QCheckBox(label);
    box->setChecked(fallback);
    add(QString(), box,
        {key,
         [box] { return QJsonValue(box->isChecked()); },
         [box, fallback](const QJsonValue& v) { box->setChecked(v.toBool(fallback)); },
         {}});
    connect(box, &QCheckBox::toggled, this, &SettingsFields::onChanged);
    return box;
}

QComboBox* SettingsFields::choice(const QString& key, const QString& label, const QStringList& values,
                                  const QString& fallback)
{
    auto* combo = new QComboBox;
    combo->addItems(values);
    combo->setCurrentIndex(combo->findText(fallback));
    add(label, combo,
        {key,
         [combo] { return QJsonValue(combo->currentText()); },
         [combo, fallback](const QJsonValue& v) {
             const int index = combo->findText(v.toString(fallback));
             combo->setCurrentIndex(index >= 0 ? index : combo->findText(fallback));
         },
         {}});
    connect(combo, &QComboBox::currentIndexChanged, this, &SettingsFields::onChanged);
    return combo;
}

void SettingsFields::load(const QJsonObject& from)
{
    loading = true;
    for (Field& field : fields) {
        field.set(from.value(field.key));
        field.shown = field.get();
    }
    loading = false;
}

bool SettingsFields::store(QJsonObject& into)
{
    bool any = false;
    for (Field& field : fields) {
        const QJsonValue now = field.get();
        if (now == field.shown)
            continue;
        into.insert(field.key, now);
        field.shown = now;
        any = true;
    }
    return any;
}

} // namespace zl::ui
