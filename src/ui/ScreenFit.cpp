#include "ui/ScreenFit.h"

#include <QGuiApplication>
#include <QScreen>
#include <QWidget>

namespace zl::ui {

void fitToScreen(QWidget* window)
{
    constexpr int marginX = 24;
    constexpr int marginY = 48;
    QScreen* screen = window->screen() ? window->screen() : QGuiApplication::primaryScreen();
    if (!screen)
        return;
    const QRect area = screen->availableGeometry();
    const int maxWidth = area.width() - marginX;
    const int maxHeight = area.height() - marginY;
    QSize size = window->size();
    if (maxWidth > 0)
        size.setWidth(qMin(size.width(), maxWidth));
    if (maxHeight > 0)
        size.setHeight(qMin(size.height(), maxHeight));
    if (size != window->size())
        window->resize(size);
    const QRect frame = window->frameGeometry();
    int x = frame.x();
    int y = frame.y();
    if (x < area.left())
        x = area.left() + marginX / 2;
    if (y < area.top())
        y = area.top() + marginY / 2;
    if (x + frame.width() > area.right() + 1)
        x = qMax(area.left(), area.right() + 1 - frame.width());
    if (y + frame.height() > area.bottom() + 1)
        y = qMax(area.top(), area.bottom() + 1 - frame.height());
    if (x != frame.x() || y != frame.y())
        window->move(x, y);
}

bool isShortScreen()
{
    const QScreen* screen = QGuiApplication::primaryScreen();
    return screen && screen->availableGeometry().height() < 600;
}

} // namespace zl::ui
