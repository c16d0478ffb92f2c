#include "ui/YsfSettingsTab.h"

#include "ui/SettingsFields.h"

#include <QSpinBox>

YsfSettingsTab::YsfSettingsTab(QWidget* parent)
    : ModeSettingsTab(QStringLiteral("YSF"), QStringLiteral("ysf"),
                      QStringLiteral("The YSF reflectors the YSF page offers, and the DG-IDs used on each."), parent)
{
    zl::ui::SettingsFields* fields = serverFields();
    fields->number(QStringLiteral("rx_dgid"), QStringLiteral("RX DG-ID"), 0, 99, 0)
        ->setToolTip(QStringLiteral("Only hear this DG-ID (0 = all), on the active reflector."));
    fields->number(QStringLiteral("tx_dgid"), QStringLiteral("TX DG-ID"), 0, 99, 0)
        ->setToolTip(QStringLiteral("DG-ID sent with this station's transmissions"));
    fields->flag(QStringLiteral("enabled"), QStringLiteral("Connect this reflector automatically"));
}
