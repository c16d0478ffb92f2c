#include "aprs/AprsPositionFormats.h"

#include <cmath>

namespace zl::aprs {

namespace {

constexpr double kKmhPerKnot = 1.852;

bool isBase91(char c)
{
    return c >= '!' && c <= '{';
}

int base91(const QByteArray& bytes, int from, int count)
{
    int value = 0;
    for (int i = from; i < from + count; ++i)
        value = value * 91 + (bytes.at(i) - 33);
    return value;
}

// A latitude digit of a Mic-E destination: 0-9 in three alphabets, and the letters that stand
// for a digit left out (position ambiguity), read as 0. -1 for a character Mic-E does not use.
int micEDigit(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'A' && c <= 'J')
        return c - 'A';
    if (c >= 'P' && c <= 'Y')
        return c - 'P';
    if (c == 'K' || c == 'L' || c == 'Z')
        return 0;
    return -1;
}

// The custom/standard letters P-Z set the flag bits (north, +100° longitude, west).
bool micEFlag(char c)
{
    return c >= 'P' && c <= 'Z';
}

} // namespace

bool decodeCompressed(const QByteArray& field, ParsedPacket& packet)
{
    if (field.size() < 13)
        return false;
    char table = field.at(0);
    const bool overlayDigit = table >= 'a' && table <= 'j';
    if (!(table == '/' || table == '\\' || (table >= 'A' && table <= 'Z') || overlayDigit))
        return false;
    for (int i = 1; i <= 8; ++i) {
        if (!isBase91(field.at(i)))
            return false;
    }
    const double latitude = 90.0 - base91(field, 1, 4) / 380926.0;
    const double longitude = -180.0 + base91(field, 5, 4) / 190463.0;
    if (std::abs(latitude) > 90.0 || std::abs(longitude) > 180.0)
        return false;
    if (overlayDigit)
        table = char('0' + (table - 'a'));

    packet.latitude = latitude;
    packet.longitude = longitude;
    packet.symbolTable = table;
    packet.symbolCode = field.at(9);
    packet.hasPosition = true;
    const char c = field.at(10);
    const char s = field.at(11);
    const char type = field.at(12);
    // A blank c means no course/speed; '{' gives a radio range; the type byte marks c/s as
    // an altitude when the position came from a GGA sentence.
    const bool altitude = isBase91(type) && ((type - 33) & 0x18) == 0x10;
    if (c >= '!' && c <= 'z' && isBase91(s) && !altitude) {
        packet.course = (c - 33) * 4;
        packet.speedKmh = (std::pow(1.08, s - 33) - 1.0) * kKmhPerKnot;
    }
    packet.comment = QString::fromUtf8(field.mid(13)).trimmed();
    return true;
}

bool decodeMicE(const QByteArray& destination, const QByteArray& information, ParsedPacket& packet)
{
    const QByteArray call =
        destination.left(destination.indexOf('-') < 0 ? destination.size() : destination.indexOf('-'));
    if (call.size() < 6 || information.size() < 9)
        return false;
    int digits[6];
    for (int i = 0; i < 6; ++i) {
        digits[i] = micEDigit(call.at(i));
        if (digits[i] < 0)
            return false;
    }
    const double latMinutes = digits[2] * 10 + digits[3] + (digits[4] * 10 + digits[5]) / 100.0;
    const int latDegrees = digits[0] * 10 + digits[1];
    if (latDegrees > 90 || latMinutes >= 60.0)
        return false;

    const auto byte = [&information](int i) { return int(quint8(information.at(i))) - 28; };
    int lonDegrees = byte(1) + (micEFlag(call.at(4)) ? 100 : 0);
    if (lonDegrees >= 180 && lonDegrees <= 189)
        lonDegrees -= 80;
    else if (lonDegrees >= 190 && lonDegrees <= 199)
        lonDegrees -= 190;
    int lonMinutes = byte(2);
    if (lonMinutes >= 60)
        lonMinutes -= 60;
    const int lonHundredths = byte(3);
    if (lonDegrees < 0 || lonDegrees > 180 || lonMinutes < 0 || lonMinutes >= 60 || lonHundredths < 0 ||
        lonHundredths > 99)
        return false;

    double latitude = latDegrees + latMinutes / 60.0;
    double longitude = lonDegrees + (lonMinutes + lonHundredths / 100.0) / 60.0;
    if (!micEFlag(call.at(3)))
        latitude = -latitude;
    if (micEFlag(call.at(5)))
        longitude = -longitude;
    if (std::abs(latitude) > 90.0 || std::abs(longitude) > 180.0)
        return false;

    const int sp = byte(4);
    const int dc = byte(5);
    const int se = byte(6);
    if (sp >= 0 && dc >= 0 && se >= 0) {
        int knots = sp * 10 + dc / 10;
        int course = (dc % 10) * 100 + se;
        if (knots >= 800)
            knots -= 800;
        if (course >= 400)
            course -= 400;
        packet.speedKmh = knots * kKmhPerKnot;
        // Course 0 means "not known"; 360 is north.
        packet.course = (course == 0 || course > 360) ? -1 : course % 360;
    }
    packet.latitude = latitude;
    packet.longitude = longitude;
    packet.symbolCode = information.at(7);
    packet.symbolTable = information.at(8);
    packet.hasPosition = true;
    packet.comment = QString::fromUtf8(information.mid(9)).trimmed();
    return true;
}

} // namespace zl::aprs
