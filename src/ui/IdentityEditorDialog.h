#pragma once

#include "app/Identity.h"

#include <QDialog>

class QCheckBox;
class QLineEdit;

// One identity of one mode: label, callsign and the mode's own fields.
class IdentityEditorDialog : public QDialog {
    Q_OBJECT

public:
    IdentityEditorDialog(const QString& modeKey, const zl::Identity& identity, QWidget* parent = nullptr);
    zl::Identity identity() const;

private:
    QString mode;
    zl::Identity original;
    QList<QLineEdit*> fields;
    QCheckBox* autoConnect;
};
