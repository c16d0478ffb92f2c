#include "ui/YsfReflectorRow.h"

namespace zl::ui {

YsfReflectorRow::YsfReflectorRow(const QString& key, QWidget* parent) : ReflectorRow(key, parent)
{
    addNumber(QStringLiteral("rx_dgid"), QStringLiteral("RX DG-ID"), 0, 99, 0,
              QStringLiteral("Only hear this DG-ID (0 = all), on the active reflector."));
    addNumber(QStringLiteral("tx_dgid"), QStringLiteral("TX DG-ID"), 0, 99, 0,
              QStringLiteral("DG-ID sent with this station's transmissions"));
}

} // namespace zl::ui
