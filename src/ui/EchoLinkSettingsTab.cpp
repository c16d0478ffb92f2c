#include "ui/EchoLinkSettingsTab.h"

#include "ui/FieldCheck.h"
#include "ui/SettingsFields.h"

#include <QLineEdit>
#include <QRegularExpression>
#include <QSpinBox>

namespace {

QString checkServers(const QString& text)
{
    static const QRegularExpression separators(QStringLiteral("[,\\s]+"));
    for (const QString& part : text.split(separators, Qt::SkipEmptyParts)) {
        const QString port = part.section(QLatin1Char(':'), 1);
        if (!port.isEmpty() && !zl::ui::checkPort(port).isEmpty())
            return zl::ui::checkPort(port);
    }
    return {};
}

} // namespace

EchoLinkSettingsTab::EchoLinkSettingsTab(QWidget* parent)
    : SectionSettingsTab(QStringLiteral("echolink"),
                         QStringLiteral("The EchoLink account this station registers with, and who may connect to it. "
                                        "The station goes online only with a callsign and a password."),
                         parent)
{
    zl::ui::SettingsFields* f = fields();
    f->flag(QStringLiteral("enabled"), QStringLiteral("Go online on the EchoLink directory"));
    f->text(QStringLiteral("callsign"), QStringLiteral("Callsign"), zl::ui::unlessEmpty(zl::ui::checkCallsign))
        ->setPlaceholderText(QStringLiteral("empty = the identity's"));
    f->secret(QStringLiteral("password"), QStringLiteral("Password"));
    f->number(QStringLiteral("node"), QStringLiteral("Node number"), 0, 9999999, 0)
        ->setSpecialValueText(QStringLiteral("unknown"));
    f->text(QStringLiteral("name"), QStringLiteral("Name"));
    f->text(QStringLiteral("description"), QStringLiteral("Location"))->setMaxLength(27);
    f->text(QStringLiteral("servers"), QStringLiteral("Directory servers"), checkServers)
        ->setPlaceholderText(QStringLiteral("empty = the public directory"));
    f->flag(QStringLiteral("accept_incoming"), QStringLiteral("Accept incoming connections"));
    f->number(QStringLiteral("max_connections"), QStringLiteral("At most connected at once"), 1, 100, 1);
    f->text(QStringLiteral("allow_list"), QStringLiteral("Only these callsigns"))
        ->setPlaceholderText(QStringLiteral("empty = everyone"));
    f->text(QStringLiteral("block_list"), QStringLiteral("Never these callsigns"));
    // Kept for a later version: no connection goes through a proxy yet.
    f->text(QStringLiteral("proxy_host"), QStringLiteral("Proxy host"), zl::ui::unlessEmpty(zl::ui::checkHost));
    f->number(QStringLiteral("proxy_port"), QStringLiteral("Proxy port"), 0, 65535, 0)
        ->setSpecialValueText(QStringLiteral("none"));
    f->secret(QStringLiteral("proxy_password"), QStringLiteral("Proxy password"));
    reload();
}
