#include "ui/AllStarNodeRow.h"

#include "ui/BaseModePage.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QMouseEvent>

namespace zl::ui {

AllStarNodeRow::AllStarNodeRow(const QString& key, const QJsonObject& entry, QWidget* parent)
    : QFrame(parent), rowKey(key)
{
    setObjectName(QStringLiteral("allstarRow_") + key);
    auto* layout = new QHBoxLayout(this);
    dot = new QLabel(QStringLiteral("●"));
    dot->setStyleSheet(BaseModePage::dotStyle(QLatin1String(BaseModePage::kIdle)));
    marker = new QLabel;
    title = new QLabel(QStringLiteral("%1  —  %2  (node %3)")
                           .arg(entry.value(QStringLiteral("name")).toString(),
                                entry.value(QStringLiteral("host")).toString(),
                                entry.value(QStringLiteral("node")).toVariant().toString()));
    layout->addWidget(dot);
    layout->addWidget(marker);
    layout->addWidget(title, 1);
}

QString AllStarNodeRow::text() const
{
    return title->text();
}

void AllStarNodeRow::setStatus(const QString& colour, const QString& text)
{
    dot->setStyleSheet(BaseModePage::dotStyle(colour));
    dot->setToolTip(text);
}

void AllStarNodeRow::setActive(bool on)
{
    BaseModePage::setRowActive(this, marker, on);
}

void AllStarNodeRow::mousePressEvent(QMouseEvent* event)
{
    if (event->button() == Qt::LeftButton)
        emit clickedActive(rowKey);
    QFrame::mousePressEvent(event);
}

} // namespace zl::ui
