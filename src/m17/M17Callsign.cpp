#include "M17Callsign.h"

namespace zl::m17 {

namespace {

constexpr char kAlphabet[] = " ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-/.";
constexpr quint64 kRadix = 40;

quint64 digitOf(QChar c)
{
    for (quint64 i = 0; i < kRadix; ++i) {
        if (c == QLatin1Char(kAlphabet[i]))
            return i;
    }
    return 0; // outside the alphabet: a blank
}

} // namespace

quint64 encodeCallsign(const QString& callsign)
{
    if (callsign == kBroadcastCallsign)
        return kBroadcastAddress;
    const QString text = callsign.left(9);
    const bool hash = text.startsWith(QLatin1Char('#'));
    quint64 value = 0;
    for (qsizetype i = text.size() - 1; i >= (hash ? 1 : 0); --i)
        value = value * kRadix + digitOf(text.at(i));
    return hash ? value + kHashOffset : value;
}

QString decodeCallsign(quint64 address)
{
    if (address == kBroadcastAddress)
        return kBroadcastCallsign;
    if (address > kHighestValidAddress)
        return QStringLiteral("Invalid");
    QString text;
    if (address >= kHashOffset) {
        text = QStringLiteral("#");
        address -= kHashOffset;
    }
    while (address > 0) {
        text += QLatin1Char(kAlphabet[address % kRadix]);
        address /= kRadix;
    }
    return text;
}

QByteArray addressBytes(quint64 address)
{
    QByteArray bytes(6, '\0');
    for (int i = 5; i >= 0; --i) {
        bytes[i] = char(address & 0xFF);
        address >>= 8;
    }
    return bytes;
}

quint64 addressAt(const QByteArray& data, qsizetype offset)
{
    if (offset < 0 || data.size() < offset + 6)
        return 0;
    quint64 value = 0;
    for (qsizetype i = 0; i < 6; ++i)
        value = (value << 8) | quint8(data.at(offset + i));
    return value;
}

} // namespace zl::m17
