#include "ui/StyleSheet.h"

#include "app/AssetPath.h"

#include <QApplication>
#include <QDebug>
#include <QFile>
#include <QFont>
#include <QGuiApplication>
#include <QRegularExpression>
#include <QScreen>

#include <algorithm>
#include <cmath>

namespace zl {

double scaleForHeight(int availableHeight)
{
    if (availableHeight <= 0)
        return 1.0;
    return std::clamp(availableHeight / 1000.0, 0.7, 1.0);
}

double uiScale()
{
    static const double factor = [] {
        const QScreen* screen = QGuiApplication::primaryScreen();
        return scaleForHeight(screen ? screen->availableGeometry().height() : 0);
    }();
    return factor;
}

int uiScale(int px)
{
    return int(std::lround(px * uiScale()));
}

QString scalePixelSizes(const QString& styleSheet, double factor)
{
    static const QRegularExpression pixels(QStringLiteral("(\\d+)px"));
    QString out;
    out.reserve(styleSheet.size());
    qsizetype copied = 0;
    for (auto it = pixels.globalMatch(styleSheet); it.hasNext();) {
        const QRegularExpressionMatch match = it.next();
        out += QStringView(styleSheet).mid(copied, match.capturedStart() - copied);
        const int n = match.captured(1).toInt(); // out of int range parses as 0
        out += QString::number(std::max(1L, std::lround(n * factor))) + QStringLiteral("px");
        copied = match.capturedEnd();
    }
    out += QStringView(styleSheet).mid(copied);
    return out;
}

void applyStyleSheet()
{
    const double factor = uiScale();
    QFont font = QApplication::font();
    const double size = font.pointSizeF() > 0 ? font.pointSizeF() : 10.0;
    font.setPointSizeF(size * factor);
    QApplication::setFont(font);

    const QString path = assetPath(QStringLiteral("style.qss"));
    if (path.isEmpty())
        return;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return;
    qDebug() << "StyleSheet: using" << path;
    const QString text = QString::fromUtf8(file.readAll());
    qApp->setStyleSheet(std::abs(factor - 1.0) < 0.01 ? text : scalePixelSizes(text, factor));
}

} // namespace zl
