#include "pocsag/DapnetLine.h"

#include <QList>

namespace zl::pocsag {

namespace {

constexpr qsizetype kMessageFields = 5;

DapnetLine parseMessage(const QByteArray& line)
{
    DapnetLine parsed;
    parsed.kind = DapnetLine::Kind::Message;
    // The answer carries the sequence number after the one received; the core sends the next
    // message only when it sees it.
    bool ok = false;
    const int sequence = line.mid(1, 2).toInt(&ok, 16);
    const int next = ok ? ((sequence + 1) % 256 + 256) % 256 : 0;
    QList<QByteArray> fields = line.mid(4).split(':');
    if (fields.size() < kMessageFields) {
        parsed.answer = QString::asprintf("#%02X -\r\n", next).toLatin1();
        return parsed;
    }
    parsed.wellFormed = true;
    parsed.answer = QString::asprintf("#%02X +\r\n", next).toLatin1();
    parsed.type = fields.at(0).toInt();
    parsed.ric = fields.at(2).toUInt(nullptr, 16);
    parsed.func = fields.at(3).toInt();
    fields.remove(0, kMessageFields - 1);
    parsed.text = fields.join(':');
    return parsed;
}

} // namespace

bool DapnetLine::isTimeBroadcast() const
{
    return (type == 5 && func == 0) || (type == 6 && func == 3 && text.startsWith("XTIME="));
}

DapnetLine parseDapnetLine(const QByteArray& line)
{
    DapnetLine parsed;
    const char first = line.isEmpty() ? '\0' : line.at(0);
    switch (first) {
    case '#':
        return parseMessage(line);
    case '+':
        parsed.kind = DapnetLine::Kind::Ack;
        return parsed;
    case '-':
        parsed.kind = DapnetLine::Kind::Error;
        return parsed;
    case '2':
        parsed.kind = DapnetLine::Kind::TimeSync;
        parsed.answer = line + ":0000\r\n+\r\n";
        return parsed;
    case '3':
        parsed.kind = DapnetLine::Kind::SlotData;
        break;
    case '4':
        parsed.kind = DapnetLine::Kind::Schedule;
        parsed.text = line.mid(2);
        break;
    case '7':
        parsed.kind = DapnetLine::Kind::LoginRefused;
        parsed.text = line.mid(2);
        break;
    default:
        parsed.answer = "-\r\n";
        return parsed;
    }
    parsed.answer = "+\r\n";
    return parsed;
}

} // namespace zl::pocsag
