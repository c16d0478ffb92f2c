#pragma once

#include <QString>
#include <QStringList>
#include <QWidget>

class QComboBox;
class QPushButton;
class QLabel;

// Base of every mode page held in the main window's stack. The window reads the card
// texts and states through the virtual operations and hears the page's signals.
class BaseModePage : public QWidget {
    Q_OBJECT

public:
    explicit BaseModePage(const QString& mode, QWidget* parent = nullptr);

    QString mode() const { return modeName; }
    // The configuration section of the mode: the name in lower case without '-' and ' '.
    QString modeKey() const { return keyOf(modeName); }
    static QString keyOf(const QString& mode);
    // The twelve mode names, in the order the window shows them.
    static const QStringList& modeNames();

    virtual bool isModeEnabled() const = 0;
    virtual bool isModeConnected() const = 0;
    // False for a mode that exists only as settings, with nothing to connect to.
    virtual bool hasNetworkClient() const { return true; }
    virtual QString serverText() const = 0;
    virtual QString targetText() const = 0;
    virtual void setPttActive(bool on);
    virtual QString activeRowKey() const;
    virtual void reloadConfig() = 0;

    // Dot colours of all status displays.
    static constexpr const char* kIdle = "#888";
    static constexpr const char* kBetween = "#e0b020";
    static constexpr const char* kUp = "#39c34a";
    static constexpr const char* kFailed = "#ff5050";
    static QString dotStyle(const QString& colour);
    // Marks a row as the active one ("active" property, marker "▶") and restyles it.
    static void setRowActive(QWidget* row, QLabel* marker, bool active);
    // Sets a boolean dynamic property and has the style sheet follow it.
    static void setStyleFlag(QWidget* widget, const char* name, bool on);

signals:
    void enabledChanged(bool on);
    void connectedChanged(bool up);
    void statusTextChanged(QString text);
    void lastHeardLine(QString time, QString call, QString country, QString network, QString target, QString duration,
                       QString lossPct, QString rssi);
    void transmissionStarted(QString time, QString call, QString country, QString network, QString target, bool isTx);
    void transmissionEnded(QString call);

protected:
    // The settings on this mode's tab, where its servers or peers are added and edited.
    void openModeSettings();
    // A button under the rows that opens them, for adding one more.
    QPushButton* addButton(const QString& text);
    // Fills a combo with the identities of the mode (data: label) and selects the stored one.
    static void fillIdentityCombo(QComboBox* combo, const QString& modeKey);
    // Fills a combo with the selected servers of the mode (data: id), keeping the current
    // one when it is still there; false when there are none.
    static bool fillServerCombo(QComboBox* combo, const QString& mode);

private:
    QString modeName;
};
