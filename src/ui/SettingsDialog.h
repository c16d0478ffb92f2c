#pragma once

#include <QDialog>
#include <QPointer>

class QPushButton;
class QTabWidget;

// The one place where the user changes the configuration: a tab per concern and per mode.
// The dialog knows no setting: each tab has a commit() slot and a dirtied() signal, and the
// dialog decides when to commit, what a close does to unsaved changes, and where it opens.
class SettingsDialog : public QDialog {
    Q_OBJECT

public:
    static SettingsDialog* showSingleton(QWidget* parent);
    // Shows the dialog on the tab of key ("dmr", "m17", …); for "dmr" with a peer label, on
    // that peer's card.
    static SettingsDialog* openOnTab(QWidget* parent, const QString& key, const QString& peerLabel = {});

    bool isDirty() const { return dirty; }
    // Asks what to do with unsaved changes; false when the user chose to stay.
    bool confirmClose();

protected:
    void closeEvent(QCloseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;

private slots:
    void onOk();
    void onApply();
    void onCancel();
    void onTabDirtied();

private:
    explicit SettingsDialog(QWidget* parent);
    void commitAll();
    void setDirty(bool on);
    bool returnToListIfEditing();
    void saveGeometryNow();

    static QPointer<SettingsDialog>& singleton();

    QTabWidget* tabs;
    // The tabs themselves, in tab order; each sits in a scroll area on the tab widget.
    QList<QWidget*> pages;
    QPushButton* applyButton;
    bool dirty = false;
};
