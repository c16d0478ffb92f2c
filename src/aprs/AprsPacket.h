#pragma once

#include <QByteArray>
#include <QMetaType>
#include <QString>

namespace zl::aprs {

// One APRS-IS line, as far as this station reads it.
struct ParsedPacket {
    enum Type { Unknown = 0, Position = 1, Message = 2, Status = 3, Other = 4 };

    Type type = Unknown;
    QString source;
    QString dest;
    double latitude = 0.0;
    double longitude = 0.0;
    char symbolTable = '/';
    char symbolCode = '-';
    QString comment;
    QString addressee;
    QString body;
    QString msgId;
    bool isAck = false;
    bool duplicate = false;
    // The coordinates were decoded (a Position may carry none: too short or damaged).
    bool hasPosition = false;
    // Degrees (0 = north); -1 when the packet carries none.
    int course = -1;
    // km/h; negative when the packet carries none.
    double speedKmh = -1.0;
};

QByteArray formatPosition(const QString& callsign, double latitudeDeg, double longitudeDeg, char symbolTable,
                          char symbolCode, const QString& comment);
QByteArray formatMessage(const QString& callsign, const QString& dest, const QString& body, const QString& msgId);
QByteArray formatAck(const QString& callsign, const QString& dest, const QString& msgId);

// Never fails: what cannot be read is Unknown, or Other with the information as its comment.
ParsedPacket parseLine(const QByteArray& line);

} // namespace zl::aprs

Q_DECLARE_METATYPE(zl::aprs::ParsedPacket)
