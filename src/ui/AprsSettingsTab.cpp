#include "ui/AprsSettingsTab.h"

#include "ui/FieldCheck.h"
#include "ui/SettingsFields.h"

#include <QDoubleSpinBox>
#include <QLineEdit>
#include <QSpinBox>

AprsSettingsTab::AprsSettingsTab(QWidget* parent)
    : SectionSettingsTab(QStringLiteral("aprs"),
                         QStringLiteral("The APRS-IS login (the passcode follows from the callsign), the server, "
                                        "this station's position beacon and the bridge to DMR short messages."),
                         parent)
{
    zl::ui::SettingsFields* f = fields();
    f->flag(QStringLiteral("enabled"), QStringLiteral("Connect at start"));
    f->text(QStringLiteral("callsign_ssid"), QStringLiteral("Callsign-SSID"),
            zl::ui::unlessEmpty(zl::ui::checkCallsign))
        ->setPlaceholderText(QStringLiteral("empty = the identity's"));
    f->text(QStringLiteral("server_host"), QStringLiteral("Own server"), zl::ui::unlessEmpty(zl::ui::checkHost))
        ->setPlaceholderText(QStringLiteral("empty = the public servers"));
    f->number(QStringLiteral("server_port"), QStringLiteral("Own server port"), 1, 65535, 14580);
    f->text(QStringLiteral("filter"), QStringLiteral("Filter"), {}, QStringLiteral("t/m"))
        ->setPlaceholderText(QStringLiteral("t/m  m/XX0ABC  r/56,15,100"));

    f->flag(QStringLiteral("beacon_enabled"), QStringLiteral("Send a position beacon"));
    f->number(QStringLiteral("beacon_interval_s"), QStringLiteral("Beacon every (s)"), 30, 3600, 600);
    f->decimal(QStringLiteral("lat"), QStringLiteral("Latitude"), -90.0, 90.0, 5);
    f->decimal(QStringLiteral("lon"), QStringLiteral("Longitude"), -180.0, 180.0, 5);
    f->text(QStringLiteral("symbol_table"), QStringLiteral("Symbol table"), {}, QStringLiteral("/"))->setMaxLength(1);
    f->text(QStringLiteral("symbol_code"), QStringLiteral("Symbol code"), {}, QStringLiteral("-"))->setMaxLength(1);
    f->text(QStringLiteral("beacon_comment"), QStringLiteral("Beacon comment"));

    f->flag(QStringLiteral("dmr_bridge_enabled"), QStringLiteral("Bridge messages to and from DMR SMS"));
    f->number(QStringLiteral("dmr_bridge_tg"), QStringLiteral("DMR talk group"), 0, 16777215, 0);
    f->number(QStringLiteral("dmr_bridge_src_id"), QStringLiteral("DMR source id"), 0, 16777215, 0)
        ->setSpecialValueText(QStringLiteral("the peer's own"));
    reload();
}
