#include "ui/M17ReflectorRow.h"

#include "ui/BaseModePage.h"

#include <QCheckBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMouseEvent>
#include <QPushButton>
#include <QRegularExpressionValidator>

namespace zl::ui {

M17ReflectorRow::M17ReflectorRow(const QString& key, QWidget* parent) : QFrame(parent), rowKey(key)
{
    setProperty("row", true);
    setObjectName(QStringLiteral("m17Row_") + key);
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(6, 3, 6, 3);
    dot = new QLabel(QStringLiteral("●"));
    marker = new QLabel;
    marker->setMinimumWidth(12);
    name = new QLabel;
    address = new QLabel;
    moduleEdit = new QLineEdit;
    moduleEdit->setMaxLength(1);
    moduleEdit->setMaximumWidth(32);
    moduleEdit->setValidator(new QRegularExpressionValidator(QRegularExpression(QStringLiteral("[A-Za-z]")), this));
    moduleEdit->setToolTip(QStringLiteral("Module of the reflector, one letter"));
    onBox = new QCheckBox;
    onBox->setToolTip(QStringLiteral("Connect this reflector automatically. Off = configured but dormant."));
    editButton = new QPushButton(QStringLiteral("Edit"));
    editButton->setProperty("variant", QStringLiteral("ghost"));
    editButton->setToolTip(QStringLiteral("Edit this reflector in Settings."));
    layout->addWidget(dot);
    layout->addWidget(marker);
    layout->addWidget(name, 2);
    layout->addWidget(address, 2);
    layout->addWidget(moduleEdit);
    layout->addWidget(onBox);
    layout->addWidget(editButton);
    setStatus(QLatin1String(BaseModePage::kIdle), QString());

    connect(onBox, &QCheckBox::toggled, this, [this](bool on) { emit toggled(rowKey, on); });
    connect(moduleEdit, &QLineEdit::editingFinished, this, [this] {
        moduleEdit->setText(module());
        emit moduleChanged(rowKey, module());
    });
    connect(editButton, &QPushButton::clicked, this, [this] { emit editRequested(rowKey); });
}

void M17ReflectorRow::show(const QString& shownName, const QString& shownAddress, bool enabled,
                           const QString& shownModule)
{
    const QSignalBlocker b1(onBox), b2(moduleEdit);
    name->setText(shownName);
    address->setText(shownAddress);
    onBox->setChecked(enabled);
    moduleEdit->setText(shownModule.toUpper());
}

QString M17ReflectorRow::module() const
{
    const QString text = moduleEdit->text().trimmed().toUpper();
    return text.isEmpty() ? QStringLiteral("A") : text.left(1);
}

bool M17ReflectorRow::isEnabled() const
{
    return onBox->isChecked();
}

void M17ReflectorRow::setStatus(const QString& newColour, const QString& text)
{
    colour = newColour;
    dot->setStyleSheet(BaseModePage::dotStyle(colour));
    setToolTip(text);
}

void M17ReflectorRow::setActive(bool on)
{
    BaseModePage::setRowActive(this, marker, on);
}

void M17ReflectorRow::mousePressEvent(QMouseEvent* event)
{
    if (event->button() == Qt::LeftButton)
        emit clickedActive(rowKey);
    QFrame::mousePressEvent(event);
}

} // namespace zl::ui
