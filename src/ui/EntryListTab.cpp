#include "ui/EntryListTab.h"

#include "app/Config.h"
#include "ui/SettingsFields.h"

#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QMessageBox>
#include <QPushButton>
#include <QScrollArea>
#include <QStackedWidget>
#include <QVBoxLayout>

EntryListTab::EntryListTab(const QString& section, const QString& what, QWidget* parent)
    : QWidget(parent), sectionName(section), noun(what), stack(new QStackedWidget), list(new QListWidget),
      cardLayout(new QFormLayout), ownLayout(new QFormLayout), cardFields(new zl::ui::SettingsFields(cardLayout, this)),
      ownFields(new zl::ui::SettingsFields(ownLayout, this))
{
    setObjectName(QStringLiteral("entryTab_") + section);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(stack);

    auto* listPage = new QWidget;
    auto* listLayout = new QVBoxLayout(listPage);
    list->setObjectName(QStringLiteral("entryList"));
    listLayout->addWidget(list, 1);
    auto* buttons = new QHBoxLayout;
    auto* add = new QPushButton(QStringLiteral("+ Add %1").arg(noun));
    add->setObjectName(QStringLiteral("addEntry"));
    auto* edit = new QPushButton(QStringLiteral("Edit"));
    edit->setObjectName(QStringLiteral("editEntry"));
    auto* remove = new QPushButton(QStringLiteral("Delete…"));
    remove->setObjectName(QStringLiteral("deleteEntry"));
    buttons->addWidget(add);
    buttons->addWidget(edit);
    buttons->addWidget(remove);
    buttons->addStretch();
    listLayout->addLayout(buttons);
    listLayout->addLayout(ownLayout);
    stack->addWidget(listPage);

    // The card scrolls: it has more fields than a small screen shows at once.
    auto* cardPage = new QWidget;
    auto* cardOuter = new QVBoxLayout(cardPage);
    auto* back = new QPushButton(QStringLiteral("← Back to %1 list").arg(noun));
    back->setObjectName(QStringLiteral("entryBack"));
    auto* top = new QHBoxLayout;
    top->addWidget(back);
    top->addStretch();
    cardOuter->addLayout(top);
    auto* scroll = new QScrollArea;
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    auto* form = new QWidget;
    form->setLayout(cardLayout);
    scroll->setWidget(form);
    cardOuter->addWidget(scroll, 1);
    stack->addWidget(cardPage);

    connect(add, &QPushButton::clicked, this, [this] {
        entries.append(QJsonObject());
        entriesChanged = true;
        refreshList();
        openCard(int(entries.size()) - 1);
        emit dirtied();
    });
    connect(edit, &QPushButton::clicked, this, [this] {
        if (list->currentRow() >= 0)
            openCard(list->currentRow());
    });
    connect(list, &QListWidget::itemDoubleClicked, this, [this] { openCard(list->currentRow()); });
    connect(remove, &QPushButton::clicked, this, [this] {
        const int row = list->currentRow();
        if (row < 0)
            return;
        if (QMessageBox::question(this, QStringLiteral("Delete %1").arg(noun),
                                  QStringLiteral("Remove this %1?").arg(noun)) != QMessageBox::Yes)
            return;
        entries.removeAt(row);
        entriesChanged = true;
        refreshList();
        emit dirtied();
    });
    connect(back, &QPushButton::clicked, this, [this] { returnToListIfEditing(); });
    connect(cardFields, &zl::ui::SettingsFields::edited, this, &EntryListTab::onCardEdited);
    connect(ownFields, &zl::ui::SettingsFields::edited, this, [this] {
        ownChanged = true;
        emit dirtied();
    });
}

void EntryListTab::reload()
{
    const QJsonObject section = zl::Config::instance().section(sectionName);
    entries = readEntries(section);
    ownFields->load(section);
    entriesChanged = ownChanged = false;
    refreshList();
}

void EntryListTab::showEvent(QShowEvent* event)
{
    // The pages change entries too (a row switched on or off): show what is stored now,
    // unless the user has changes of their own here.
    if (!entriesChanged && !ownChanged && stack->currentIndex() == 0)
        reload();
    QWidget::showEvent(event);
}

void EntryListTab::refreshList()
{
    const int row = list->currentRow();
    list->clear();
    for (const QJsonObject& entry : std::as_const(entries))
        list->addItem(entryText(entry));
    list->setCurrentRow(qMin(row, int(list->count()) - 1));
}

void EntryListTab::openCard(int index)
{
    if (index < 0 || index >= entries.size())
        return;
    editing = index;
    cardFields->load(entries.at(index));
    list->setCurrentRow(index);
    stack->setCurrentIndex(1);
}

void EntryListTab::onCardEdited()
{
    if (editing < 0 || editing >= entries.size())
        return;
    cardFields->store(entries[editing]);
    entriesChanged = true;
    list->item(editing)->setText(entryText(entries.at(editing)));
    emit dirtied();
}

bool EntryListTab::returnToListIfEditing()
{
    if (stack->currentIndex() != 1)
        return false;
    editing = -1;
    stack->setCurrentIndex(0);
    return true;
}

void EntryListTab::commit()
{
    if (!entriesChanged && !ownChanged)
        return;
    zl::Config& config = zl::Config::instance();
    QJsonObject section = config.section(sectionName);
    if (entriesChanged)
        writeEntries(section, entries);
    if (ownChanged)
        ownFields->store(section);
    entriesChanged = ownChanged = false;
    config.setSection(sectionName, section);
    config.save();
    // Entries left without the values that name them were not written; the list shows what was.
    if (stack->currentIndex() == 0)
        reload();
}
