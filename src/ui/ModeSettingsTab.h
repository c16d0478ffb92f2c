#pragma once

#include <QWidget>

class QLabel;
class QLineEdit;
class QStackedWidget;
class QTableWidget;

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
    QString editingId; // empty: a new server
    bool filling = false;
};
