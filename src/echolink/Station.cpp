#include "Station.h"

namespace zl::echolink {

namespace {

// "Club Repeater [BUSY] 12:34": text, status in brackets, time. The last "[" counts, so that
// a description may itself contain brackets.
void splitDescription(const QString& line, Station& station)
{
    const qsizetype bracket = line.lastIndexOf(QLatin1Char('['));
    if (bracket < 0) {
        station.description = line.trimmed();
        return;
    }
    station.description = line.left(bracket).trimmed();
    const QString tail = line.mid(bracket);
    if (tail.contains(QLatin1String("BUSY")))
        station.status = 3;
    else if (tail.contains(QLatin1String("ON")))
        station.status = 2;
    const qsizetype close = tail.indexOf(QLatin1Char(']'));
    if (close >= 0)
        station.time = tail.mid(close + 1).trimmed().left(5);
}

} // namespace

std::optional<QList<Station>> parseStationList(const QByteArray& reply)
{
    const qsizetype marker = reply.indexOf("@@@");
    if (marker < 0)
        return std::nullopt;
    const QList<QByteArray> lines = reply.mid(marker).split('\n');
    QList<Station> stations;
    for (qsizetype i = 2; i + 3 < lines.size(); i += 4) {
        const QString callsign = QString::fromUtf8(lines.at(i)).trimmed();
        if (callsign.startsWith(QLatin1String("+++")))
            break;
        const QString ip = QString::fromUtf8(lines.at(i + 3)).trimmed();
        if (ip == QLatin1String(".") || callsign.isEmpty())
            continue;
        Station station;
        station.callsign = callsign;
        station.ip = ip;
        bool ok = false;
        const int node = QString::fromUtf8(lines.at(i + 2)).trimmed().toInt(&ok, 10);
        station.nodeId = ok ? node : 0;
        splitDescription(QString::fromUtf8(lines.at(i + 1)), station);
        stations.append(station);
    }
    return stations;
}

} // namespace zl::echolink
