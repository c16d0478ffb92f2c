#include "ui/ClickRow.h"

#include "ui/BaseModePage.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QMouseEvent>

namespace zl::ui {

ClickRow::ClickRow(const QString& key, const QString& text, QWidget* parent) : QFrame(parent), rowKey(key)
{
    setObjectName(QStringLiteral("clickRow_") + key);
    auto* layout = new QHBoxLayout(this);
    marker = new QLabel;
    layout->addWidget(marker);
    layout->addWidget(new QLabel(text), 1);
}

void ClickRow::setActive(bool on)
{
    BaseModePage::setRowActive(this, marker, on);
}

void ClickRow::mousePressEvent(QMouseEvent* event)
{
    if (event->button() == Qt::LeftButton)
        emit clicked(rowKey);
    QFrame::mousePressEvent(event);
}

} // namespace zl::ui
