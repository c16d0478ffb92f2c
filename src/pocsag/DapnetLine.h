#pragma once

#include <QByteArray>

namespace zl::pocsag {

// One line from a DAPNET core, without its line end, as a transmitter reads it: what kind it
// is, what it carries, and the answer the core waits for.
struct DapnetLine {
    enum class Kind { Message, Ack, Error, TimeSync, SlotData, Schedule, LoginRefused, Unknown };

    Kind kind = Kind::Unknown;
    // A message: false when it has too few fields to be one (the core is told so).
    bool wellFormed = false;
    int type = 0;
    uint ric = 0;
    int func = 0;
    // A message's text, colons and all; a schedule's slots; a refusal's reason.
    QByteArray text;
    // What goes back to the core, line end included; empty when it expects nothing.
    QByteArray answer;

    // Time messages and the time broadcast keep the transmitter's clock; they are no page.
    bool isTimeBroadcast() const;
};

DapnetLine parseDapnetLine(const QByteArray& line);

} // namespace zl::pocsag
