#include "ui/SvxServerRow.h"

#include "app/Config.h"
#include "ui/BaseModePage.h"
#include "ui/StyleSheet.h"

#include <QCheckBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QMouseEvent>
#include <QSpinBox>

namespace zl::ui {

SvxServerRow::SvxServerRow(const QString& key, const QJsonObject& entry, QWidget* parent) : QFrame(parent), rowKey(key)
{
    setObjectName(QStringLiteral("svxRow_") + key);
    auto* layout = new QHBoxLayout(this);
    dot = new QLabel(QStringLiteral("●"));
    dot->setStyleSheet(BaseModePage::dotStyle(QLatin1String(BaseModePage::kIdle)));
    marker = new QLabel;
    layout->addWidget(dot);
    layout->addWidget(marker);
    const QString name = entry.value(QStringLiteral("name")).toString();
    layout->addWidget(new QLabel(name.isEmpty() ? key : name), 1);
    status = new QLabel;
    status->setObjectName(QStringLiteral("svxRowStatus"));
    status->setProperty("role", QStringLiteral("hint"));
    layout->addWidget(status, 2);
    onBox = new QCheckBox(QStringLiteral("on"));
    onBox->setChecked(entry.value(QStringLiteral("enabled")).toBool());
    onBox->setToolTip(QStringLiteral("Connect this reflector automatically. Off = configured but dormant."));
    layout->addWidget(onBox);
    layout->addWidget(new QLabel(QStringLiteral("TG")));
    tgSpin = new QSpinBox;
    tgSpin->setRange(0, 999999999);
    tgSpin->setValue(entry.value(QStringLiteral("tg")).toVariant().toInt());
    layout->addWidget(tgSpin);

    connect(onBox, &QCheckBox::toggled, this, [this](bool on) {
        store(QStringLiteral("enabled"), on);
        emit enabledToggled(rowKey, on);
    });
    connect(tgSpin, &QSpinBox::valueChanged, this, [this](int value) {
        store(QStringLiteral("tg"), value);
        emit tgChanged(rowKey, uint(value));
    });
}

uint SvxServerRow::tg() const
{
    return uint(tgSpin->value());
}

void SvxServerRow::setTg(uint tg)
{
    tgSpin->setValue(int(tg));
}

void SvxServerRow::setStatus(const QString& colour, const QString& text)
{
    dot->setStyleSheet(BaseModePage::dotStyle(colour));
    dot->setToolTip(text);
    // Long reasons are cut on the row; the whole text is in the tool tip.
    status->setText(status->fontMetrics().elidedText(text, Qt::ElideRight, zl::uiScale(260)));
    status->setToolTip(text);
}

void SvxServerRow::setActive(bool on)
{
    BaseModePage::setRowActive(this, marker, on);
}

void SvxServerRow::mousePressEvent(QMouseEvent* event)
{
    if (event->button() == Qt::LeftButton)
        emit clickedActive(rowKey);
    QFrame::mousePressEvent(event);
}

void SvxServerRow::store(const QString& name, const QJsonValue& value)
{
    zl::Config& config = zl::Config::instance();
    QJsonObject section = config.section(QStringLiteral("svxlink"));
    QJsonObject servers = section.value(QStringLiteral("servers")).toObject();
    QJsonObject entry = servers.value(rowKey).toObject();
    entry.insert(name, value);
    servers.insert(rowKey, entry);
    section.insert(QStringLiteral("servers"), servers);
    config.setSection(QStringLiteral("svxlink"), section);
}

} // namespace zl::ui
