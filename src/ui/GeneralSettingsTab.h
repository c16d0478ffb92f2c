#pragma once

#include "app/Identity.h"

#include <QHash>
#include <QWidget>

class QCheckBox;
class QComboBox;
class QLineEdit;
class QListWidget;
class QPushButton;
class QRadioButton;

// Push-to-talk (stored at once, no Apply needed) and the operator's identities per mode.
class GeneralSettingsTab : public QWidget {
    Q_OBJECT

public:
    explicit GeneralSettingsTab(QWidget* parent = nullptr);
    // A mode's identities as edited here, committed or not: other tabs offer them at once.
    QList<zl::Identity> identitiesOf(const QString& modeKey) const;

public slots:
    void commit();

signals:
    void dirtied();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private slots:
    void addIdentity(const QString& modeKey);
    void editIdentity(const QString& modeKey);
    void removeIdentity(const QString& modeKey);
    void onDefaultModeChanged(const QString& mode);

private:
    void storePtt(const QString& key, const QJsonValue& value);
    void showPttKey();
    void refreshIdentities();
    QString currentMode() const;

    QPushButton* pttKeyButton;
    bool capturingKey = false;
    QComboBox* identityMode;
    QListWidget* identityList;
    QHash<QString, QList<zl::Identity>> edited; // modes whose identities changed, not yet committed
    QComboBox* defaultMode;
    QCheckBox* logEnabled;
    QLineEdit* logDir;
};
