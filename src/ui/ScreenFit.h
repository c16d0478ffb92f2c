#pragma once

class QWidget;

namespace zl::ui {

// Shrinks a top-level window to the available area of its screen, less 24 px across and
// 48 px down for the panel and decorations, and moves it back onto the screen. A window
// restored on a since-removed or smaller monitor must not open out of reach.
void fitToScreen(QWidget* window);

// A screen less than 600 px high, such as the Raspberry Pi's 7-inch display: the main
// window trades the cards' second and third lines and some spacing for room to work in.
bool isShortScreen();

} // namespace zl::ui
