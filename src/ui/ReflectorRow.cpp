#include "ui/ReflectorRow.h"

#include "ui/BaseModePage.h"

#include <QCheckBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMouseEvent>
#include <QPushButton>
#include <QSpinBox>

namespace zl::ui {

ReflectorRow::ReflectorRow(const QString& key, QWidget* parent) : QFrame(parent), rowKey(key)
{
    setProperty("row", true);
    setObjectName(QStringLiteral("reflectorRow_") + key);
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(6, 3, 6, 3);
    dot = new QLabel(QStringLiteral("●"));
    marker = new QLabel;
    marker->setMinimumWidth(12);
    name = new QLabel;
    address = new QLabel;
    fields = new QHBoxLayout;
    onBox = new QCheckBox;
    onBox->setToolTip(QStringLiteral("Connect this reflector automatically. Off = configured but dormant."));
    editButton = new QPushButton(QStringLiteral("Edit"));
    editButton->setProperty("variant", QStringLiteral("ghost"));
    editButton->setToolTip(QStringLiteral("Edit this reflector in Settings."));
    layout->addWidget(dot);
    layout->addWidget(marker);
    layout->addWidget(name, 2);
    layout->addWidget(address, 2);
    layout->addLayout(fields);
    layout->addWidget(onBox);
    layout->addWidget(editButton);
    setStatus(QLatin1String(BaseModePage::kIdle), QString());

    connect(onBox, &QCheckBox::toggled, this, [this](bool on) { emit toggled(rowKey, on); });
    connect(editButton, &QPushButton::clicked, this, [this] { emit editRequested(rowKey); });
}

void ReflectorRow::addNumber(const QString& field, const QString& label, int min, int max, int fallback,
                             const QString& tip)
{
    auto* spin = new QSpinBox;
    spin->setRange(min, max);
    spin->setValue(fallback);
    spin->setToolTip(tip);
    fields->addWidget(new QLabel(label));
    fields->addWidget(spin);
    editors.insert(field, spin);
    fallbacks.insert(field, fallback);
    connect(spin, &QSpinBox::editingFinished, this,
            [this, field, spin] { emit fieldChanged(rowKey, field, spin->value()); });
}

QLineEdit* ReflectorRow::addText(const QString& field, const QString& label, const QString& tip)
{
    auto* edit = new QLineEdit;
    edit->setToolTip(tip);
    if (!label.isEmpty())
        fields->addWidget(new QLabel(label));
    fields->addWidget(edit);
    editors.insert(field, edit);
    connect(edit, &QLineEdit::editingFinished, this,
            [this, field, edit] { emit fieldChanged(rowKey, field, edit->text().trimmed()); });
    return edit;
}

void ReflectorRow::show(const QString& shownName, const QString& shownAddress, bool enabled, const QJsonObject& values)
{
    const QSignalBlocker block(onBox);
    name->setText(shownName);
    address->setText(shownAddress);
    onBox->setChecked(enabled);
    for (auto it = editors.cbegin(); it != editors.cend(); ++it) {
        const QSignalBlocker blockField(it.value());
        if (auto* spin = qobject_cast<QSpinBox*>(it.value()))
            spin->setValue(values.value(it.key()).toInt(fallbacks.value(it.key())));
        else if (auto* edit = qobject_cast<QLineEdit*>(it.value()))
            edit->setText(values.value(it.key()).toString());
    }
}

void ReflectorRow::setStatus(const QString& newColour, const QString& text)
{
    colour = newColour;
    dot->setStyleSheet(BaseModePage::dotStyle(colour));
    setToolTip(text);
}

void ReflectorRow::setActive(bool on)
{
    BaseModePage::setRowActive(this, marker, on);
}

void ReflectorRow::mousePressEvent(QMouseEvent* event)
{
    if (event->button() == Qt::LeftButton)
        emit clickedActive(rowKey);
    QFrame::mousePressEvent(event);
}

} // namespace zl::ui
