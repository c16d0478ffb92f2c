#include "ui/TgListDialog.h"

#include "db/TgListSync.h"

#include <QDialogButtonBox>
#include <QFile>
#include <QHeaderView>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSortFilterProxyModel>
#include <QStandardItemModel>
#include <QTableView>
#include <QVBoxLayout>

namespace zl::ui {

namespace {

QStandardItem* cell(const QString& text)
{
    auto* item = new QStandardItem(text);
    item->setEditable(false);
    return item;
}

} // namespace

TgListDialog::TgListDialog(const QString& network, QWidget* parent)
    : QDialog(parent), model(new QStandardItemModel(this)), proxy(new QSortFilterProxyModel(this)),
      table(new QTableView)
{
    setWindowTitle(QStringLiteral("TG list — %1").arg(network));
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(new QLabel(QStringLiteral("Search (TG number or name):")));
    auto* search = new QLineEdit;
    search->setObjectName(QStringLiteral("tgSearch"));
    search->setPlaceholderText(QStringLiteral("e.g. 240 or Sweden"));
    layout->addWidget(search);

    model->setHorizontalHeaderLabels(
        {QStringLiteral("ID"), QStringLiteral("Type"), QStringLiteral("Name"), QStringLiteral("Description")});
    proxy->setSourceModel(model);
    proxy->setFilterCaseSensitivity(Qt::CaseInsensitive);
    proxy->setFilterKeyColumn(-1);
    table->setObjectName(QStringLiteral("tgTable"));
    table->setModel(proxy);
    table->setSelectionBehavior(QAbstractItemView::SelectRows);
    table->setSelectionMode(QAbstractItemView::SingleSelection);
    table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    table->horizontalHeader()->setStretchLastSection(true);
    table->verticalHeader()->hide();
    layout->addWidget(table, 1);

    auto* buttons = new QDialogButtonBox;
    buttons->addButton(QStringLiteral("Close"), QDialogButtonBox::RejectRole);
    QPushButton* select = buttons->addButton(QStringLiteral("Select"), QDialogButtonBox::AcceptRole);
    select->setObjectName(QStringLiteral("tgSelect"));
    layout->addWidget(buttons);

    fill(network);
    table->setSortingEnabled(true);
    table->sortByColumn(0, Qt::AscendingOrder);
    resize(640, 480);

    connect(search, &QLineEdit::textChanged, this, &TgListDialog::onSearchChanged);
    connect(table, &QTableView::activated, this, &TgListDialog::onRowActivated);
    // The button box would accept on its own; the choice has to be read first.
    connect(buttons, &QDialogButtonBox::accepted, this, &TgListDialog::onRowActivated);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
}

void TgListDialog::fill(const QString& network)
{
    QFile file(zl::TgListSync::fileForNetwork(network));
    const QJsonDocument doc =
        file.open(QIODevice::ReadOnly) ? QJsonDocument::fromJson(file.readAll()) : QJsonDocument();
    if (!doc.isArray()) {
        model->appendRow(cell(QStringLiteral("No TG list cached for %1 yet — run Update DBs or wait for the next "
                                             "scheduled sync.")
                                  .arg(network)));
        table->setSpan(0, 0, 1, 4);
        return;
    }
    for (const QJsonValue& value : doc.array()) {
        const QJsonObject o = value.toObject();
        QStandardItem* id = cell(QString::number(o.value(QStringLiteral("id")).toInteger()));
        // Numbers sort as numbers, not as text.
        id->setData(int(o.value(QStringLiteral("id")).toInteger()), Qt::UserRole);
        id->setData(int(o.value(QStringLiteral("id")).toInteger()), Qt::DisplayRole);
        model->appendRow({id, cell(o.value(QStringLiteral("type")).toString()),
                          cell(o.value(QStringLiteral("name")).toString()),
                          cell(o.value(QStringLiteral("description")).toString())});
    }
}

void TgListDialog::onSearchChanged(const QString& text)
{
    proxy->setFilterFixedString(text);
}

void TgListDialog::onRowActivated()
{
    const QModelIndex current = table->currentIndex();
    if (!current.isValid())
        return;
    const int row = proxy->mapToSource(current).row();
    const QStandardItem* id = model->item(row, 0);
    const QStandardItem* name = model->item(row, 2);
    // The message row of a network without a list has no talkgroup behind it.
    if (!id || !name || !id->data(Qt::UserRole).isValid())
        return;
    emit talkgroupChosen(id->data(Qt::UserRole).toUInt(), name->text());
    accept();
}

} // namespace zl::ui
