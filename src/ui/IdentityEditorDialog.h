#pragma once

#include "app/Identity.h"

#include <QDialog>

class QCheckBox;
class QFormLayout;
class QLineEdit;

// One identity of one mode: label, callsign and the mode's own fields.
class IdentityEditorDialog : public QDialog {
    Q_OBJECT

public:
    IdentityEditorDialog(const QString& modeKey, const zl::Identity& identity, QWidget* parent = nullptr);
    zl::Identity identity() const;

private:
    // APRS: the SSID and the symbol picked from their customary lists; "Custom…" frees the symbol field.
    void addAprsChoices(QFormLayout* form);

    QString mode;
    zl::Identity original;
    QList<QLineEdit*> fields;
    QCheckBox* autoConnect;
};
