#include "ui/ModeSettingsTab.h"

#include "app/Config.h"
#include "app/Identity.h"
#include "db/ServerRegistry.h"
#include "ui/FieldCheck.h"
#include "ui/SettingsFields.h"

#include <QFormLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QStackedWidget>
#include <QTableWidget>
#include <QVBoxLayout>

ModeSettingsTab::ModeSettingsTab(const QString& modeTitle, const QString& key, const QString& heading, QWidget* parent)
    : QWidget(parent), title(modeTitle), modeKey(key), stack(new QStackedWidget), table(new QTableWidget(0, 2)),
      identityLine(new QLabel), cardTitle(new QLabel), name(new QLineEdit), host(new QLineEdit), port(new QLineEdit),
      password(new QLineEdit), cardLayout(new QFormLayout), ownLayout(new QFormLayout),
      cardFields(new zl::ui::SettingsFields(cardLayout, this)), ownFields(new zl::ui::SettingsFields(ownLayout, this))
{
    setObjectName(QStringLiteral("modeTab_") + key);
    auto* layout = new QVBoxLayout(this);
    auto* top = new QLabel(heading);
    top->setWordWrap(true);
    layout->addWidget(top);
    layout->addWidget(identityLine);
    layout->addWidget(stack);

    auto* listPage = new QWidget;
    auto* listLayout = new QVBoxLayout(listPage);
    table->setObjectName(QStringLiteral("serverTable"));
    table->setHorizontalHeaderLabels({QStringLiteral("Use"), QStringLiteral("Server")});
    table->horizontalHeader()->setStretchLastSection(true);
    table->setSelectionBehavior(QAbstractItemView::SelectRows);
    listLayout->addWidget(table);
    auto* buttons = new QHBoxLayout;
    auto* add = new QPushButton(QStringLiteral("Add"));
    add->setObjectName(QStringLiteral("addServer"));
    auto* edit = new QPushButton(QStringLiteral("Edit"));
    auto* remove = new QPushButton(QStringLiteral("Delete server…"));
    buttons->addWidget(add);
    buttons->addWidget(edit);
    buttons->addWidget(remove);
    buttons->addStretch();
    listLayout->addLayout(buttons);
    listLayout->addLayout(ownLayout);
    stack->addWidget(listPage);

    auto* card = new QWidget;
    QFormLayout* form = cardLayout;
    card->setLayout(form);
    auto* back = new QPushButton(QStringLiteral("← Back to servers list"));
    form->addRow(back);
    form->addRow(cardTitle);
    name->setObjectName(QStringLiteral("serverName"));
    host->setObjectName(QStringLiteral("serverHost"));
    port->setObjectName(QStringLiteral("serverPort"));
    password->setObjectName(QStringLiteral("serverPassword"));
    zl::ui::maskWithShowToggle(password);
    form->addRow(QStringLiteral("Name"), name);
    form->addRow(QStringLiteral("Host or IP"), host);
    zl::ui::addFieldCheck(host, form, zl::ui::checkHost);
    form->addRow(QStringLiteral("Port"), port);
    zl::ui::addFieldCheck(port, form, zl::ui::checkPort);
    form->addRow(QStringLiteral("Password"), password);
    stack->addWidget(card);

    connect(add, &QPushButton::clicked, this, [this] { openCard({}); });
    connect(edit, &QPushButton::clicked, this, [this] {
        const int row = table->currentRow();
        if (row >= 0 && !table->item(row, 1)->data(Qt::UserRole + 1).toBool())
            openCard(table->item(row, 1)->data(Qt::UserRole).toString());
    });
    connect(remove, &QPushButton::clicked, this, [this] {
        const int row = table->currentRow();
        if (row < 0 || table->item(row, 1)->data(Qt::UserRole + 1).toBool())
            return;
        if (QMessageBox::question(this, QStringLiteral("Delete server"), QStringLiteral("Remove this server?")) !=
            QMessageBox::Yes)
            return;
        zl::ServerRegistry(title).removeUserServer(table->item(row, 1)->data(Qt::UserRole).toString());
        refresh();
        emit dirtied();
    });
    connect(back, &QPushButton::clicked, this, [this] { stack->setCurrentIndex(0); });
    const auto cardChanged = [this] {
        cardEdited = true;
        emit dirtied();
    };
    for (QLineEdit* field : {name, host, port, password})
        connect(field, &QLineEdit::textEdited, this, cardChanged);
    connect(cardFields, &zl::ui::SettingsFields::edited, this, cardChanged);
    connect(ownFields, &zl::ui::SettingsFields::edited, this, &ModeSettingsTab::dirtied);
    connect(table, &QTableWidget::itemChanged, this, [this](QTableWidgetItem* item) {
        if (filling || item->column() != 0)
            return;
        zl::ServerRegistry(title).setSelected(item->data(Qt::UserRole).toString(), item->checkState() == Qt::Checked);
        emit dirtied();
    });
    refresh();
}

void ModeSettingsTab::onIdentityChanged(const QString& displayText)
{
    identityLine->setText(
        displayText.isEmpty()
            ? QStringLiteral("(no %1 identities — add some in General)").arg(title)
            : QStringLiteral("Active identity (from General → %1 identities): %2").arg(title, displayText));
}

void ModeSettingsTab::refresh()
{
    filling = true;
    const zl::ServerRegistry registry(title);
    QList<zl::ServerEntry> all = registry.official();
    all.append(registry.user());
    table->setRowCount(int(all.size()));
    for (int row = 0; row < all.size(); ++row) {
        const zl::ServerEntry& entry = all.at(row);
        auto* use = new QTableWidgetItem;
        use->setFlags(Qt::ItemIsUserCheckable | Qt::ItemIsEnabled | Qt::ItemIsSelectable);
        use->setCheckState(entry.selected ? Qt::Checked : Qt::Unchecked);
        use->setData(Qt::UserRole, entry.id);
        auto* text = new QTableWidgetItem(entry.official ? entry.name + QStringLiteral("  (official)") : entry.name);
        text->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable);
        text->setData(Qt::UserRole, entry.id);
        text->setData(Qt::UserRole + 1, entry.official);
        table->setItem(row, 0, use);
        table->setItem(row, 1, text);
    }
    filling = false;
    const zl::Identity identity = zl::resolveIdentity(modeKey);
    onIdentityChanged(identity.callsign.isEmpty() ? QString() : zl::identityDisplayText(identity));
}

void ModeSettingsTab::openCard(const QString& id)
{
    editingId = id;
    zl::ServerEntry entry;
    const zl::ServerRegistry registry(title);
    for (const zl::ServerEntry& each : registry.user()) {
        if (each.id == id)
            entry = each;
    }
    cardTitle->setText(id.isEmpty() ? QStringLiteral("New %1 server").arg(title)
                                    : QStringLiteral("Edit — %1").arg(entry.name));
    name->setText(entry.name);
    host->setText(entry.host);
    port->setText(entry.port ? QString::number(entry.port) : QString());
    password->setText(entry.password);
    cardFields->load(
        zl::Config::instance().section(modeKey).value(QStringLiteral("servers")).toObject().value(id).toObject());
    cardEdited = false;
    stack->setCurrentIndex(1);
}

void ModeSettingsTab::loadSectionFields()
{
    ownFields->load(zl::Config::instance().section(modeKey));
}

void ModeSettingsTab::saveCard()
{
    zl::ServerEntry entry;
    entry.name = name->text().trimmed();
    entry.host = host->text().trimmed();
    entry.port = port->text().trimmed().toInt();
    entry.password = password->text();
    if (entry.host.isEmpty())
        return;
    if (entry.name.isEmpty())
        entry.name = entry.host;
    zl::ServerRegistry registry(title);
    if (editingId.isEmpty()) {
        // A server the user adds is one to use. The card stays on it: OK goes back to the list.
        editingId = registry.addUserServer(entry);
        registry.setSelected(editingId, true);
    } else {
        registry.updateUserServer(editingId, entry);
    }
    // The mode's own values of this server, beside its row's other values.
    zl::Config& config = zl::Config::instance();
    QJsonObject section = config.section(modeKey);
    QJsonObject all = section.value(QStringLiteral("servers")).toObject();
    QJsonObject values = all.value(editingId).toObject();
    if (cardFields->store(values)) {
        all.insert(editingId, values);
        section.insert(QStringLiteral("servers"), all);
        config.setSection(modeKey, section);
        config.save();
    }
    cardEdited = false;
    refresh();
}

void ModeSettingsTab::commit()
{
    // What the card holds is kept even when the user went back to the list without OK.
    if (cardEdited)
        saveCard();
    zl::Config& config = zl::Config::instance();
    QJsonObject section = config.section(modeKey);
    if (ownFields->store(section)) {
        config.setSection(modeKey, section);
        config.save();
    }
}

bool ModeSettingsTab::returnToListIfEditing()
{
    if (stack->currentIndex() != 1)
        return false;
    stack->setCurrentIndex(0);
    return true;
}
