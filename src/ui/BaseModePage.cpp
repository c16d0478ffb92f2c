#include "ui/BaseModePage.h"

#include "app/Identity.h"
#include "db/ServerRegistry.h"
#include "ui/SettingsDialog.h"

#include <QComboBox>
#include <QLabel>
#include <QPushButton>
#include <QStandardItemModel>
#include <QStyle>

namespace {

// The fields a mode needs beyond label and callsign before it can transmit.
bool isComplete(const zl::Identity& identity, const QString& modeKey)
{
    if (identity.callsign.isEmpty())
        return false;
    const bool needsId = modeKey == QLatin1String("dmr") || modeKey == QLatin1String("nxdn");
    return !needsId || !identity.id_field.isEmpty();
}

void addDisabledEntry(QComboBox* combo, const QString& text)
{
    combo->addItem(text, QString());
    if (auto* model = qobject_cast<QStandardItemModel*>(combo->model()))
        model->item(combo->count() - 1)->setEnabled(false);
}

} // namespace

BaseModePage::BaseModePage(const QString& mode, QWidget* parent) : QWidget(parent), modeName(mode)
{
}

const QStringList& BaseModePage::modeNames()
{
    static const QStringList names = {"AllStar", "APRS", "D-STAR", "DMR",    "DMR SMS", "Echolink",
                                      "M17",     "NXDN", "P25",    "POCSAG", "SvxLink", "YSF"};
    return names;
}

QString BaseModePage::keyOf(const QString& mode)
{
    QString key = mode.toLower();
    key.remove(QLatin1Char('-'));
    key.remove(QLatin1Char(' '));
    return key;
}

void BaseModePage::setPttActive(bool)
{
}

QString BaseModePage::activeRowKey() const
{
    return {};
}

QString BaseModePage::dotStyle(const QString& colour)
{
    return QStringLiteral("color:%1;font-size:14px;border:none;").arg(colour);
}

void BaseModePage::setStyleFlag(QWidget* widget, const char* name, bool on)
{
    widget->setProperty(name, on);
    widget->style()->unpolish(widget);
    widget->style()->polish(widget);
    widget->update();
}

void BaseModePage::setRowActive(QWidget* row, QLabel* marker, bool active)
{
    if (marker)
        marker->setText(active ? QStringLiteral("▶") : QString());
    setStyleFlag(row, "active", active);
}

void BaseModePage::fillIdentityCombo(QComboBox* combo, const QString& modeKey)
{
    const QSignalBlocker block(combo);
    combo->clear();
    const QList<zl::Identity> list = zl::identities(modeKey);
    if (list.isEmpty()) {
        addDisabledEntry(combo, QStringLiteral("(no identities — open Settings → General)"));
        return;
    }
    for (const zl::Identity& identity : list) {
        const QString marker = isComplete(identity, modeKey) ? QStringLiteral("✔ ") : QStringLiteral("   ");
        combo->addItem(marker + zl::identityDisplayText(identity), identity.label);
    }
    const int stored = combo->findData(zl::txIdentityLabel(modeKey));
    combo->setCurrentIndex(stored >= 0 ? stored : 0);
}

bool BaseModePage::fillServerCombo(QComboBox* combo, const QString& mode)
{
    const QSignalBlocker block(combo);
    const QString previous = combo->currentData().toString();
    combo->clear();
    const zl::ServerRegistry registry(mode);
    const QList<zl::ServerEntry> servers = registry.selected();
    if (servers.isEmpty()) {
        addDisabledEntry(combo, QStringLiteral("(no servers — open Settings)"));
        return false;
    }
    for (const zl::ServerEntry& server : servers)
        combo->addItem(server.name, server.id);
    const int keep = combo->findData(previous);
    combo->setCurrentIndex(keep >= 0 ? keep : 0);
    return true;
}

void BaseModePage::openModeSettings()
{
    SettingsDialog::openOnTab(window(), modeKey());
}

QPushButton* BaseModePage::addButton(const QString& text)
{
    auto* button = new QPushButton(text);
    button->setObjectName(QStringLiteral("addInSettings"));
    button->setProperty("variant", QStringLiteral("ghost"));
    button->setToolTip(QStringLiteral("Opens the settings on the %1 tab").arg(modeName));
    connect(button, &QPushButton::clicked, this, &BaseModePage::openModeSettings);
    return button;
}
