#include "ui/SmsPeerRow.h"

#include "ui/BaseModePage.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QMouseEvent>

namespace zl::ui {

SmsPeerRow::SmsPeerRow(const QString& label, QWidget* parent) : QFrame(parent), peerLabel(label)
{
    setObjectName(QStringLiteral("smsPeer_") + label);
    setToolTip(QStringLiteral("Click the row to send SMS via this peer."));
    setCursor(Qt::PointingHandCursor);
    auto* layout = new QHBoxLayout(this);
    dot = new QLabel(QStringLiteral("●"));
    dot->setStyleSheet(BaseModePage::dotStyle(QString::fromLatin1(BaseModePage::kIdle)));
    marker = new QLabel;
    network = new QLabel;
    state = new QLabel;
    state->setObjectName(QStringLiteral("smsPeerState"));
    layout->addWidget(dot);
    layout->addWidget(marker);
    layout->addWidget(new QLabel(label), 1);
    layout->addWidget(network, 1);
    layout->addWidget(state, 2);
}

void SmsPeerRow::setStatus(const QString& networkName, const QString& colour, const QString& stateText)
{
    network->setText(networkName);
    dot->setStyleSheet(BaseModePage::dotStyle(colour));
    state->setText(stateText);
}

void SmsPeerRow::setChosen(bool on)
{
    BaseModePage::setRowActive(this, marker, on);
}

void SmsPeerRow::mousePressEvent(QMouseEvent* event)
{
    if (event->button() == Qt::LeftButton)
        emit clicked(peerLabel);
    QFrame::mousePressEvent(event);
}

} // namespace zl::ui
