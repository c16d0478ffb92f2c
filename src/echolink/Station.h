#pragma once

#include <QByteArray>
#include <QList>
#include <QMetaType>
#include <QString>

#include <optional>

namespace zl::echolink {

// One entry of the directory's station list.
struct Station {
    QString callsign;
    int status = 0; // 0 unknown, 2 online, 3 busy
    QString time;   // "HH:mm" as the directory sends it
    QString description;
    int nodeId = -1; // 0 when the number does not fit an int
    QString ip;
};

// Parses the reply to the "s" request: free text, "@@@", one skipped line, then records of
// four lines up to a line starting with "+++". Without "@@@" the reply is no list at all.
std::optional<QList<Station>> parseStationList(const QByteArray& reply);

} // namespace zl::echolink

Q_DECLARE_METATYPE(zl::echolink::Station)
