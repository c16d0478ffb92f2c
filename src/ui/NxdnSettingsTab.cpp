#include "ui/NxdnSettingsTab.h"

#include "ui/FieldCheck.h"
#include "ui/SettingsFields.h"

#include <QLineEdit>
#include <QSpinBox>

NxdnSettingsTab::NxdnSettingsTab(QWidget* parent)
    : ModeSettingsTab(QStringLiteral("NXDN"), QStringLiteral("nxdn"),
                      QStringLiteral("The NXDN reflectors the NXDN page offers, with the talk group and the identity "
                                     "used on each."),
                      parent)
{
    zl::ui::SettingsFields* fields = serverFields();
    fields->number(QStringLiteral("tg"), QStringLiteral("Talk group"), 0, 65535, 0)
        ->setToolTip(QStringLiteral("Talkgroup of the reflector"));
    fields->number(QStringLiteral("ran"), QStringLiteral("RAN"), 0, 63, 0)
        ->setToolTip(QStringLiteral("Radio access number, 0 to 63"));
    fields->text(QStringLiteral("callsign"), QStringLiteral("Callsign"), zl::ui::unlessEmpty(zl::ui::checkCallsign))
        ->setPlaceholderText(QStringLiteral("empty = the identity's"));
    // 0 stands for the identity's id; anything else must be a radio id the network accepts.
    fields->number(QStringLiteral("radio_id"), QStringLiteral("NXDN-ID"), 0, 65535, 0, [](const QString& text) {
        return text.trimmed() == QLatin1String("0") ? QString() : zl::ui::checkNxdnId(text);
    });
    fields->flag(QStringLiteral("enabled"), QStringLiteral("Connect this reflector automatically"));
}
