#include "ui/NxdnReflectorRow.h"

namespace zl::ui {

NxdnReflectorRow::NxdnReflectorRow(const QString& key, QWidget* parent) : ReflectorRow(key, parent)
{
    addNumber(QStringLiteral("tg"), QStringLiteral("TG"), 0, 65535, 0, QStringLiteral("Talkgroup of the reflector"));
    addNumber(QStringLiteral("ran"), QStringLiteral("RAN"), 0, 63, 0, QStringLiteral("Radio access number, 0 to 63"));
    addText(QStringLiteral("callsign"), QStringLiteral("Call"),
            QStringLiteral("Callsign on this reflector; empty = the identity's"));
    addNumber(QStringLiteral("radio_id"), QStringLiteral("ID"), 0, 65535, 0,
              QStringLiteral("NXDN radio id on this reflector; 0 = the identity's"));
}

} // namespace zl::ui
