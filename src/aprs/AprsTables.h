#pragma once

#include <QList>
#include <QString>

namespace zl::aprs {

// A value offered in the settings, with its meaning.
struct AprsChoice {
    QString value;
    QString text;
};

// The SSIDs by their customary use ("" = a fixed station without SSID).
QList<AprsChoice> ssidChoices();
// Symbols of the primary table, as table character and code ("/>" = car).
QList<AprsChoice> symbolChoices();

} // namespace zl::aprs
