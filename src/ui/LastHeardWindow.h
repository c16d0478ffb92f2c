#pragma once

#include <QMainWindow>
#include <QPointer>

class QComboBox;
class QLineEdit;
class QTableWidget;
class QTimer;

// The large last-heard view: every row of the last 24 hours, in memory only, with a search
// over all cells and a filter by mode. One at a time, a child of the main window.
class LastHeardWindow : public QMainWindow {
    Q_OBJECT

public:
    // The window, made when there is none; shown, raised and activated in any case.
    static LastHeardWindow* instance(QWidget* parent);

public slots:
    void appendRow(const QString& time, const QString& call, const QString& country, const QString& mode,
                   const QString& server, const QString& target, const QString& duration, const QString& lossPct,
                   const QString& rssi);

protected:
    void closeEvent(QCloseEvent* event) override;

private slots:
    void applyFilter();
    void pruneOld();

private:
    explicit LastHeardWindow(QWidget* parent);
    static QPointer<LastHeardWindow>& guarded();

    QTableWidget* table;
    QLineEdit* search;
    QComboBox* modeFilter;
    QTimer* pruneTimer;
};
