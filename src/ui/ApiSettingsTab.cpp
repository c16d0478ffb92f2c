#include "ui/ApiSettingsTab.h"

#include "app/Config.h"
#include "ui/ApiKeyDialog.h"

#include <QGroupBox>
#include <QHBoxLayout>
#include <QJsonObject>
#include <QListWidget>
#include <QPushButton>
#include <QVBoxLayout>

namespace zl::ui {

namespace {

const QString kDmr = QStringLiteral("dmr");

} // namespace

ApiSettingsTab::ApiSettingsTab(QWidget* parent) : QWidget(parent)
{
    const QJsonObject dmr = Config::instance().section(kDmr);
    bm.keys = dmr.value(QStringLiteral("bm_api_keys")).toArray();
    tgif.keys = dmr.value(QStringLiteral("tgif_api_keys")).toArray();
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(buildPanel(bm, QStringLiteral("Brandmeister")));
    layout->addWidget(buildPanel(tgif, QStringLiteral("TGIF")));
    layout->addStretch();
}

QWidget* ApiSettingsTab::buildPanel(Panel& panel, const QString& title)
{
    auto* box = new QGroupBox(title);
    auto* layout = new QVBoxLayout(box);
    panel.list = new QListWidget;
    panel.list->setObjectName(panel.tgif ? QStringLiteral("tgifKeys") : QStringLiteral("bmKeys"));
    panel.list->setSelectionMode(QAbstractItemView::ExtendedSelection);
    layout->addWidget(panel.list);
    auto* buttons = new QHBoxLayout;
    const QString prefix = panel.tgif ? QStringLiteral("tgif") : QStringLiteral("bm");
    for (const char* text : {"Add", "Edit", "Delete", "Select all"}) {
        auto* button = new QPushButton(QLatin1String(text));
        button->setObjectName(prefix + QString::fromLatin1(text).remove(QLatin1Char(' ')));
        buttons->addWidget(button);
        const QString what = QLatin1String(text);
        connect(button, &QPushButton::clicked, this, [this, &panel, what] {
            if (what == QLatin1String("Add")) {
                edit(panel, -1);
            } else if (what == QLatin1String("Edit")) {
                if (panel.list->currentRow() >= 0)
                    edit(panel, panel.list->currentRow());
            } else if (what == QLatin1String("Delete")) {
                const QList<QListWidgetItem*> chosen = panel.list->selectedItems();
                QList<int> rows;
                for (QListWidgetItem* item : chosen)
                    rows << panel.list->row(item);
                std::sort(rows.rbegin(), rows.rend());
                for (int row : std::as_const(rows))
                    panel.keys.removeAt(row);
                showKeys(panel);
                emit dirtied();
            } else {
                panel.list->selectAll();
            }
        });
    }
    buttons->addStretch();
    layout->addLayout(buttons);
    showKeys(panel);
    return box;
}

void ApiSettingsTab::showKeys(const Panel& panel)
{
    panel.list->clear();
    for (const QJsonValue& value : panel.keys) {
        const QJsonObject key = value.toObject();
        QString text = key.value("name").toString();
        if (panel.tgif) {
            text += QStringLiteral("  (%1)").arg(key.value("callsign").toString());
            if (key.value("password").toString().isEmpty())
                text += QStringLiteral("   ⚠ no password — press Edit");
        }
        panel.list->addItem(text);
    }
}

void ApiSettingsTab::edit(Panel& panel, int row)
{
    ApiKeyDialog dialog(panel.tgif, row < 0 ? QJsonObject{} : panel.keys.at(row).toObject(), this);
    if (dialog.exec() != QDialog::Accepted)
        return;
    if (row < 0)
        panel.keys.append(dialog.entry());
    else
        panel.keys.replace(row, dialog.entry());
    showKeys(panel);
    emit dirtied();
}

void ApiSettingsTab::commit()
{
    QJsonObject dmr = Config::instance().section(kDmr);
    dmr.insert(QStringLiteral("bm_api_keys"), bm.keys);
    dmr.insert(QStringLiteral("tgif_api_keys"), tgif.keys);
    Config::instance().setSectionSilent(kDmr, dmr);
    Config::instance().save();
}

} // namespace zl::ui
