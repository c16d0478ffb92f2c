#pragma once

#include <QByteArray>
#include <QString>

namespace zl::ysf {

// Datagrams of the YSF reflector protocol. Text fields are UTF-8, cut to their width and
// padded with blanks.
inline constexpr qsizetype kYsfdSize = 155;
inline constexpr qsizetype kPayloadSize = 120;

// "YSFP" poll or "YSFU" unlink: the tag and the callsign in 10 bytes.
QByteArray buildYsfControl(const char* tag, const QString& callsign);
// "YSFO": the callsign in 10 bytes and the option text in 36.
QByteArray buildYsfOptions(const QString& callsign, const QString& options);

struct Ysfd {
    QString gateway;
    QString source;
    QString destination;
    quint8 counter = 0; // 7 bits
    bool end = false;   // end of transmission
    QByteArray payload; // 120 bytes: sync, FICH, data
};

// The payload is cut to or zero-padded to 120 bytes.
QByteArray buildYsfd(const QString& gateway, const QString& source, const QString& destination, quint8 counter,
                     bool end, const QByteArray& payload);
// False for anything shorter than 155 bytes or not starting with "YSFD".
bool parseYsfd(const QByteArray& datagram, Ysfd& out);

// A text field: UTF-8, cut to width, blank padded.
QByteArray textField(const QString& text, qsizetype width);

} // namespace zl::ysf
