#pragma once

#include <QJsonObject>
#include <QList>
#include <QPair>
#include <QString>

namespace zl::svx {

class SvxReflectorClient;

// "host[:port]": split at the last colon after the first character; a port that doesn't
// parse gives 0, no colon gives 5300.
QPair<QString, quint16> splitReflectorKey(const QString& key);
// Talk groups separated by commas or blanks; parts that aren't 32-bit decimals are dropped.
QList<quint32> parseMonitorTgs(const QString& text);

// Configures a client from one reflector entry of section svxlink, with the section's own
// keys as fallbacks where the entry has none. configDir holds the svx_pki folder.
void applyReflectorSettings(SvxReflectorClient& client, const QString& key, const QJsonObject& entry,
                            const QJsonObject& section, const QString& configDir);

} // namespace zl::svx
