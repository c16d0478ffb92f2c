#pragma once

#include <QJsonObject>
#include <QList>
#include <QWidget>

class QFormLayout;
class QListWidget;
class QPushButton;
class QStackedWidget;

namespace zl::ui {
class SettingsFields;
}

// A list of the entries of one section (reflectors, nodes …) with a card to add or edit one.
// The card changes a working copy; commit() writes the section only when something changed,
// so that pages keep the connections of entries nobody touched.
class EntryListTab : public QWidget {
    Q_OBJECT

public:
    // section: the configuration section; noun: what one entry is ("AllStar node").
    EntryListTab(const QString& section, const QString& noun, QWidget* parent = nullptr);

public slots:
    void commit();
    bool returnToListIfEditing();

signals:
    void dirtied();

protected:
    virtual QList<QJsonObject> readEntries(const QJsonObject& section) const = 0;
    virtual void writeEntries(QJsonObject& section, const QList<QJsonObject>& entries) const = 0;
    virtual QString entryText(const QJsonObject& entry) const = 0;

    zl::ui::SettingsFields* entryFields() const { return cardFields; }
    zl::ui::SettingsFields* sectionFields() const { return ownFields; }
    QFormLayout* sectionForm() const { return ownLayout; }
    // Reads the stored entries and section values; the derived tab calls it once its fields exist.
    void reload();

    void showEvent(QShowEvent* event) override;

private:
    void refreshList();
    void openCard(int index);
    void onCardEdited();

    QString sectionName;
    QString noun;
    QStackedWidget* stack;
    QListWidget* list;
    QFormLayout* cardLayout;
    QFormLayout* ownLayout;
    zl::ui::SettingsFields* cardFields;
    zl::ui::SettingsFields* ownFields;
    QList<QJsonObject> entries;
    int editing = -1;
    bool entriesChanged = false;
    bool ownChanged = false;
};
