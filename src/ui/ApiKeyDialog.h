#pragma once

#include <QDialog>
#include <QJsonObject>

class QLabel;
class QLineEdit;

namespace zl::ui {

// One stored key: a BrandMeister API key, or a TGIF account (the site has no keys: it signs in
// with callsign and password and keeps the token it fetched).
class ApiKeyDialog : public QDialog {
    Q_OBJECT

public:
    ApiKeyDialog(bool tgif, const QJsonObject& entry, QWidget* parent = nullptr);
    QJsonObject entry() const;

    // Empty when the entry may be stored, else what is missing.
    static QString problem(bool tgif, const QJsonObject& entry);

private:
    void onSave();

    bool tgif;
    QJsonObject original;
    QLineEdit* name;
    QLineEdit* key = nullptr;
    QLineEdit* callsign = nullptr;
    QLineEdit* password = nullptr;
    QLabel* warning;
};

} // namespace zl::ui
