#include "ui/ApiKeyDialog.h"

#include "ui/SettingsFields.h"

#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>

namespace zl::ui {

ApiKeyDialog::ApiKeyDialog(bool isTgif, const QJsonObject& stored, QWidget* parent)
    : QDialog(parent), tgif(isTgif), original(stored), name(new QLineEdit(stored.value("name").toString())),
      warning(new QLabel)
{
    setWindowTitle(tgif ? QStringLiteral("TGIF account") : QStringLiteral("BrandMeister API key"));
    auto* form = new QFormLayout(this);
    name->setObjectName(QStringLiteral("apiKeyName"));
    form->addRow(QStringLiteral("Name"), name);
    const auto masked = [form](const char* objectName, const QString& label, const QString& value) {
        auto* edit = new QLineEdit(value);
        edit->setObjectName(QLatin1String(objectName));
        form->addRow(label, edit);
        return edit;
    };
    if (tgif) {
        callsign = masked("apiKeyCallsign", QStringLiteral("TGIF callsign"), stored.value("callsign").toString());
        password = masked("apiKeyPassword", QStringLiteral("TGIF password"), stored.value("password").toString());
        maskWithShowToggle(password);
        form->addRow(new QLabel(QStringLiteral("The login of the TGIF web site; the program fetches its api_token.")));
    } else {
        key = masked("apiKeyValue", QStringLiteral("API key"), stored.value("key").toString());
        maskWithShowToggle(key);
    }
    warning->setObjectName(QStringLiteral("apiKeyWarning"));
    warning->setWordWrap(true);
    form->addRow(warning);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Save | QDialogButtonBox::Cancel);
    connect(buttons, &QDialogButtonBox::accepted, this, &ApiKeyDialog::onSave);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    form->addRow(buttons);
}

QJsonObject ApiKeyDialog::entry() const
{
    QJsonObject out = original;
    out.insert(QStringLiteral("name"), name->text().trimmed());
    if (tgif) {
        out.insert(QStringLiteral("callsign"), callsign->text().trimmed().toUpper());
        out.insert(QStringLiteral("password"), password->text());
    } else {
        out.insert(QStringLiteral("key"), key->text().trimmed());
    }
    return out;
}

QString ApiKeyDialog::problem(bool isTgif, const QJsonObject& entry)
{
    if (!isTgif)
        return entry.value("key").toString().isEmpty()
                   ? QStringLiteral("API key is empty — paste your BrandMeister API key.")
                   : QString();
    if (entry.value("callsign").toString().isEmpty())
        return QStringLiteral("TGIF callsign is empty — enter the callsign you sign in to the TGIF site with.");
    if (entry.value("password").toString().isEmpty())
        return QStringLiteral("TGIF password is empty — enter the password of the TGIF site.");
    return {};
}

void ApiKeyDialog::onSave()
{
    const QString missing = problem(tgif, entry());
    warning->setText(missing);
    if (missing.isEmpty())
        accept();
}

} // namespace zl::ui
