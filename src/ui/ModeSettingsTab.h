#pragma once

#include <QWidget>

class QFormLayout;
class QLabel;
class QLineEdit;
class QStackedWidget;
class QTableWidget;

namespace zl::ui {
class SettingsFields;
}

// The servers of a mode from the server registry: official ones read-only, the user's own
// editable on a card. A tick selects a server for the mode's page at once.
class ModeSettingsTab : public QWidget {
    Q_OBJECT

public:
    // title: the registry's name of the mode ("M17", "D-STAR" …); modeKey: its identity key.
    ModeSettingsTab(const QString& title, const QString& modeKey, const QString& heading, QWidget* parent = nullptr);

public slots:
    void commit();
    bool returnToListIfEditing();

signals:
    void dirtied();

private slots:
    void onIdentityChanged(const QString& displayText);

protected:
    // What a mode adds of its own: keys of the server's entry under the section's `servers`,
    // which its page reads for that server's row, on the card; keys of the section, below the list.
    zl::ui::SettingsFields* serverFields() const { return cardFields; }
    zl::ui::SettingsFields* sectionFields() const { return ownFields; }
    QFormLayout* cardForm() const { return cardLayout; }
    QFormLayout* sectionForm() const { return ownLayout; }
    // The section's values as they are stored now, for a mode tab to show in its own fields.
    void loadSectionFields();

private:
    void refresh();
    void openCard(const QString& id);
    void saveCard();

    QString title;
    QString modeKey;
    QStackedWidget* stack;
    QTableWidget* table;
    QLabel* identityLine;
    QLabel* cardTitle;
    QLineEdit* name;
    QLineEdit* host;
    QLineEdit* port;
    QLineEdit* password;
    QFormLayout* cardLayout;
    QFormLayout* ownLayout;
    zl::ui::SettingsFields* cardFields;
    zl::ui::SettingsFields* ownFields;
    QString editingId; // empty: a new server
    bool filling = false;
    bool cardEdited = false;
};
