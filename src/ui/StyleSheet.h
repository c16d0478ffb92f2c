#pragma once

#include <QString>

namespace zl {

// Scale factor for sizes: available screen height / 1000, clamped to 0.7..1.0.
// Computed once per process, at the first call.
double uiScale();
// A pixel size scaled by uiScale(), rounded.
int uiScale(int px);
// The factor for a screen of the given available height (no screen: height <= 0).
double scaleForHeight(int availableHeight);
// Every "<N>px" becomes max(1, round(N * factor))px; the rest is copied unchanged.
QString scalePixelSizes(const QString& styleSheet, double factor);

// Sets the application font and style sheet, both scaled to the screen.
void applyStyleSheet();

} // namespace zl
