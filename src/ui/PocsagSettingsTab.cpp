#include "ui/PocsagSettingsTab.h"

#include "ui/SettingsFields.h"

#include <QLineEdit>
#include <QRegularExpression>

namespace {

// RICs are 21-bit addresses, written in decimal.
QString checkRics(const QString& text)
{
    static const QRegularExpression separators(QStringLiteral("[,\\s]+"));
    for (const QString& part : text.split(separators, Qt::SkipEmptyParts)) {
        bool ok = false;
        const uint ric = part.toUInt(&ok);
        if (!ok || ric > 2097151)
            return QStringLiteral("\"%1\" is not a RIC (a number up to 2097151).").arg(part);
    }
    return {};
}

} // namespace

PocsagSettingsTab::PocsagSettingsTab(QWidget* parent)
    : ModeSettingsTab(QStringLiteral("POCSAG"), QStringLiteral("pocsag"),
                      QStringLiteral("The DAPNET servers; below, the transmitter login that receives pages and the "
                                     "account that sends them."),
                      parent)
{
    zl::ui::SettingsFields* fields = sectionFields();
    fields->flag(QStringLiteral("enabled"), QStringLiteral("Connect at start"));
    fields->text(QStringLiteral("tx_name"), QStringLiteral("Transmitter name"));
    fields->secret(QStringLiteral("auth_key"), QStringLiteral("Transmitter auth key"));
    fields->text(QStringLiteral("username"), QStringLiteral("DAPNET username"));
    fields->secret(QStringLiteral("password"), QStringLiteral("DAPNET password"));
    fields->text(QStringLiteral("tx_group"), QStringLiteral("Transmitter groups"))
        ->setPlaceholderText(QStringLiteral("for sending, e.g. dl-all"));
    fields->text(QStringLiteral("rics"), QStringLiteral("Own RICs"), checkRics)
        ->setPlaceholderText(QStringLiteral("decimal, separated by commas"));
    loadSectionFields();
}
