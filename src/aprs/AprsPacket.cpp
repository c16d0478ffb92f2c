#include "aprs/AprsPacket.h"

#include "aprs/AprsPositionFormats.h"

#include <cmath>

namespace zl::aprs {

namespace {

QString ownCall(const QString& callsign)
{
    return callsign.trimmed().toUpper();
}

// Addressees stand in a field of exactly nine characters.
QString addresseeField(const QString& dest)
{
    return dest.trimmed().toUpper().left(9).leftJustified(9, QLatin1Char(' '));
}

QString coordinate(double value, int degreeDigits, char positive, char negative)
{
    const double magnitude = std::abs(value);
    const int degrees = int(magnitude);
    const double minutes = (magnitude - degrees) * 60.0;
    return QString::asprintf(degreeDigits == 2 ? "%02d%05.2f%c" : "%03d%05.2f%c", degrees, minutes,
                             value < 0 ? negative : positive);
}

// degrees (integer, 0 if not a number) + minutes / 60, negative for the given hemispheres. A station
// that hides its exact position blanks the last digits; they count as zeros, as other decoders read them.
double readCoordinate(QByteArray field, int degreeDigits, bool& ok)
{
    field.replace(' ', '0');
    const int degrees = field.left(degreeDigits).toInt();
    bool minutesOk = false;
    const double minutes = field.mid(degreeDigits, 5).toDouble(&minutesOk);
    const char hemisphere = field.at(degreeDigits + 5);
    double value = degrees + minutes / 60.0;
    const bool negative = hemisphere == 'S' || hemisphere == 's' || hemisphere == 'W' || hemisphere == 'w';
    ok = minutesOk && QByteArray("NnSsEeWw").contains(hemisphere);
    return negative ? -value : value;
}

void readUncompressed(const QByteArray& info, int offset, ParsedPacket& packet)
{
    bool latOk = false;
    bool lonOk = false;
    packet.latitude = readCoordinate(info.mid(offset, 8), 2, latOk);
    packet.longitude = readCoordinate(info.mid(offset + 9, 9), 3, lonOk);
    packet.symbolTable = info.at(offset + 8);
    packet.symbolCode = info.at(offset + 18);
    packet.comment = QString::fromUtf8(info.mid(offset + 19));
    packet.hasPosition = latOk && lonOk && std::abs(packet.latitude) <= 90.0 && std::abs(packet.longitude) <= 180.0;
}

void readPosition(const QByteArray& info, ParsedPacket& packet)
{
    packet.type = ParsedPacket::Position;
    const bool timestamped = info.at(0) == '/' || info.at(0) == '@';
    const int offset = timestamped ? 8 : 1;
    // An uncompressed latitude starts with a digit (or a blank left out for ambiguity); a
    // compressed position with its symbol table.
    const char first = info.size() > offset ? info.at(offset) : '\0';
    if (first != ' ' && !(first >= '0' && first <= '9') && decodeCompressed(info.mid(offset), packet))
        return;
    if (info.size() < offset + 19)
        return;
    readUncompressed(info, offset, packet);
}

void readMessage(const QByteArray& info, ParsedPacket& packet)
{
    const int close = info.indexOf(':', 1);
    if (close < 2 || close > 10)
        return;
    packet.type = ParsedPacket::Message;
    packet.addressee = QString::fromLatin1(info.mid(1, close - 1)).trimmed();
    QByteArray rest = info.mid(close + 1);
    const int brace = rest.indexOf('{');
    if (brace >= 0) {
        packet.msgId = QString::fromLatin1(rest.mid(brace + 1));
        rest.truncate(brace);
    }
    packet.body = QString::fromUtf8(rest);
    const QString head = packet.body.left(3).toLower();
    packet.isAck = head == QLatin1String("ack") || head == QLatin1String("rej");
}

bool isMicE(char type)
{
    return type == '`' || type == '\'' || type == 0x1c || type == 0x1d;
}

} // namespace

QByteArray formatPosition(const QString& callsign, double latitudeDeg, double longitudeDeg, char symbolTable,
                          char symbolCode, const QString& comment)
{
    return QStringLiteral("%1>APRS,TCPIP*:=%2%3%4%5%6\r\n")
        .arg(ownCall(callsign), coordinate(latitudeDeg, 2, 'N', 'S'), QString(QLatin1Char(symbolTable)),
             coordinate(longitudeDeg, 3, 'E', 'W'), QString(QLatin1Char(symbolCode)), comment.trimmed())
        .toUtf8();
}

QByteArray formatMessage(const QString& callsign, const QString& dest, const QString& body, const QString& msgId)
{
    QString line = QStringLiteral("%1>APRS,TCPIP*::%2:%3").arg(ownCall(callsign), addresseeField(dest), body.trimmed());
    if (!msgId.isEmpty())
        line += QLatin1Char('{') + msgId.trimmed();
    return (line + QStringLiteral("\r\n")).toUtf8();
}

QByteArray formatAck(const QString& callsign, const QString& dest, const QString& msgId)
{
    return QStringLiteral("%1>APRS,TCPIP*::%2:ack%3\r\n").arg(ownCall(callsign), addresseeField(dest), msgId).toUtf8();
}

ParsedPacket parseLine(const QByteArray& raw)
{
    ParsedPacket packet;
    QByteArray line = raw;
    while (line.endsWith('\r') || line.endsWith('\n'))
        line.chop(1);
    if (line.isEmpty() || line.startsWith('#'))
        return packet;
    const int gt = line.indexOf('>');
    const int colon = line.indexOf(':');
    if (gt <= 0 || colon < 0 || gt > colon)
        return packet;
    packet.source = QString::fromLatin1(line.left(gt));
    int destEnd = line.indexOf(',', gt + 1);
    if (destEnd < 0 || destEnd > colon)
        destEnd = colon;
    const QByteArray dest = line.mid(gt + 1, destEnd - gt - 1);
    packet.dest = QString::fromLatin1(dest);
    const QByteArray info = line.mid(colon + 1);
    if (info.isEmpty())
        return packet;

    const char type = info.at(0);
    if (type == ':')
        readMessage(info, packet);
    else if (type == '!' || type == '=' || type == '/' || type == '@')
        readPosition(info, packet);
    else if (type == '>') {
        packet.type = ParsedPacket::Status;
        packet.comment = QString::fromUtf8(info.mid(1));
    } else if (isMicE(type) && decodeMicE(dest, info, packet))
        packet.type = ParsedPacket::Position;
    else {
        packet.type = ParsedPacket::Other;
        packet.comment = QString::fromUtf8(info);
    }
    return packet;
}

} // namespace zl::aprs
