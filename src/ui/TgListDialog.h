#pragma once

#include <QDialog>
#include <QString>

class QSortFilterProxyModel;
class QStandardItemModel;
class QTableView;

namespace zl::ui {

// The cached talkgroup list of one DMR network, searchable by number or name; a double-click,
// Enter or "Select" hands the chosen talkgroup back.
class TgListDialog : public QDialog {
    Q_OBJECT

public:
    explicit TgListDialog(const QString& network, QWidget* parent = nullptr);

signals:
    void talkgroupChosen(uint id, const QString& name);

private slots:
    void onRowActivated();
    void onSearchChanged(const QString& text);

private:
    void fill(const QString& network);

    QStandardItemModel* model;
    QSortFilterProxyModel* proxy;
    QTableView* table;
};

} // namespace zl::ui
