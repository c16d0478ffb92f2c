#include "ui/FlowLayout.h"

#include <QWidget>

namespace zl::ui {

FlowLayout::FlowLayout(int spacing, QWidget* parent) : QLayout(parent)
{
    setSpacing(spacing);
    setContentsMargins(0, 0, 0, 0);
}

FlowLayout::~FlowLayout()
{
    while (QLayoutItem* item = takeAt(0))
        delete item;
}

void FlowLayout::addItem(QLayoutItem* item)
{
    items.append(item);
}

QLayoutItem* FlowLayout::takeAt(int index)
{
    if (index < 0 || index >= items.size())
        return nullptr;
    return items.takeAt(index);
}

QSize FlowLayout::minimumSize() const
{
    QSize size;
    for (const QLayoutItem* item : items)
        size = size.expandedTo(item->minimumSize());
    const QMargins m = contentsMargins();
    return size + QSize(m.left() + m.right(), m.top() + m.bottom());
}

void FlowLayout::setGeometry(const QRect& rect)
{
    QLayout::setGeometry(rect);
    const int height = arrange(rect, true);
    // Box layouts do not ask a child for its height at the width it gets: keep the
    // wrapped lines from being cut by raising the widget's minimum height instead.
    if (QWidget* owner = parentWidget(); owner && owner->layout() == this && owner->minimumHeight() != height)
        owner->setMinimumHeight(height);
}

int FlowLayout::arrange(const QRect& rect, bool place) const
{
    const QRect area = rect.marginsRemoved(contentsMargins());
    int x = area.x();
    int y = area.y();
    int lineHeight = 0;
    for (QLayoutItem* item : items) {
        if (item->widget() && item->widget()->isHidden())
            continue;
        const QSize hint = item->sizeHint();
        if (x + hint.width() > area.right() + 1 && lineHeight > 0) {
            x = area.x();
            y += lineHeight + spacing();
            lineHeight = 0;
        }
        if (place)
            item->setGeometry(QRect(QPoint(x, y), hint));
        x += hint.width() + spacing();
        lineHeight = qMax(lineHeight, hint.height());
    }
    return y + lineHeight - rect.y() + contentsMargins().bottom();
}

} // namespace zl::ui
