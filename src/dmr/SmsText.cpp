#include "SmsText.h"

#include <QByteArrayView>

#include <algorithm>

namespace zl::dmr {

namespace {

constexpr int kMaxUnits = 300;
constexpr int kMaxRun = 300;
constexpr int kMinRun = 5;
// Where an IPv4 and UDP header end, and the marker AnyTone radios put in front of their text.
constexpr int kIpUdpHeaderSize = 28;
constexpr char kAnytoneMarker[] = {0x04, 0x0D, 0x00, 0x0A};

bool printable(uint8_t b)
{
    return b >= 0x20 && b <= 0x7E;
}

// UCS-2 in the given byte order: at least 60 % of the pairs look like Latin text, with the high
// byte 0 and the low byte printable.
bool looksLikeUcs2(const uint8_t* p, int n, bool bigEndian)
{
    const int hi = bigEndian ? 0 : 1;
    const int lo = 1 - hi;
    if (n < 2)
        return false;
    if (n < 4)
        return p[hi] == 0 && printable(p[lo]);
    const int pairs = n / 2;
    int zeroHigh = 0;
    int printableLow = 0;
    for (int i = 0; i < pairs; ++i) {
        zeroHigh += p[2 * i + hi] == 0;
        printableLow += printable(p[2 * i + lo]);
    }
    return std::min(zeroHigh, printableLow) >= pairs * 6 / 10;
}

QString ucs2(const uint8_t* p, int n, bool bigEndian)
{
    QString out;
    for (int i = 0; i + 1 < n && i / 2 < kMaxUnits; i += 2) {
        const char16_t unit = bigEndian ? char16_t((p[i] << 8) | p[i + 1]) : char16_t((p[i + 1] << 8) | p[i]);
        if (unit == 0)
            break;
        if (unit == '\t' || unit == '\n' || unit == '\r')
            out.append(QLatin1Char(' '));
        else if (unit >= 32)
            out.append(QChar(unit));
    }
    // A lone surrogate half is not text; the round trip through UTF-8 makes it a replacement mark.
    return QString::fromUtf8(out.toUtf8());
}

// The longest stretch of printable ASCII, the first of equals; empty when shorter than 5 bytes.
QString asciiRun(const uint8_t* p, int n)
{
    int bestStart = 0;
    int bestLength = 0;
    for (int i = 0; i < n;) {
        int j = i;
        while (j < n && printable(p[j]))
            ++j;
        if (j - i > bestLength) {
            bestStart = i;
            bestLength = j - i;
        }
        i = j + 1;
    }
    if (bestLength < kMinRun)
        return {};
    return QString::fromLatin1(reinterpret_cast<const char*>(p + bestStart), std::min(bestLength, kMaxRun));
}

QString familyOf(const QString& text, const QString& fallback)
{
    const QString lower = text.toLower();
    if (lower.contains(QLatin1String("mototrbo")) || lower.contains(QLatin1String("motorola")))
        return QStringLiteral("motorola");
    if (lower.contains(QLatin1String("lrrp")) || lower.contains(QLatin1String("hytera")))
        return QStringLiteral("hytera");
    return fallback;
}

DecodedText result(uint8_t dd, const char* format, QString text, const QString& family, int confidence)
{
    return {QString::fromLatin1(format), dd, std::move(text), family, confidence};
}

// An IPv4 packet carrying UDP, with the text marker after the headers: its offset, or -1.
int anytoneTextOffset(const uint8_t* p, int n)
{
    if (n <= 32 || (p[0] >> 4) != 4 || p[9] != 17)
        return -1;
    const QByteArrayView all(p, n);
    const qsizetype at = all.indexOf(QByteArrayView(kAnytoneMarker, sizeof kAnytoneMarker), kIpUdpHeaderSize);
    return at < 0 ? -1 : int(at + qsizetype(sizeof kAnytoneMarker));
}

// The short data text: up to the first NUL, without trailing blanks.
QString shortDataText(const uint8_t* p, int n)
{
    const QByteArrayView body(p, n);
    const qsizetype end = body.indexOf('\0');
    QString text = QString::fromUtf8(end < 0 ? body : body.first(end));
    while (!text.isEmpty() && text.back().isSpace())
        text.chop(1);
    return text;
}

} // namespace

DecodedText decodeSmsText(const uint8_t* p, int n)
{
    const QString etsi = QStringLiteral("etsi");
    const QString unknown = QStringLiteral("unknown");
    if (n <= 0)
        return result(0, "empty", {}, unknown, 0);
    const uint8_t dd = p[0];
    if (const int at = anytoneTextOffset(p, n); at >= 0)
        return result(dd, "anytone_ip_ucs2_be", ucs2(p + at, n - at, true), QStringLiteral("anytone_tyt"), 95);

    const uint8_t* body = p + 1;
    const int bodySize = n - 1;
    if (n >= 3) {
        if (dd == 2 && looksLikeUcs2(body, bodySize, true))
            return result(dd, "anytone_ucs2_be", ucs2(body, bodySize, true), QStringLiteral("anytone_tyt"), 95);
        if (dd == 4 && looksLikeUcs2(body, bodySize, false))
            return result(dd, "etsi_ucs2_le", ucs2(body, bodySize, false), etsi, 90);
        if (dd == 4 && looksLikeUcs2(body, bodySize, true))
            return result(dd, "etsi_ucs2_be", ucs2(body, bodySize, true), etsi, 90);
    }
    if (n >= 2) {
        if (dd == 8) {
            QString run = asciiRun(body, bodySize);
            const char* format = run.isEmpty() ? "etsi_8bit_bin" : "etsi_8bit_ascii";
            return result(dd, format, std::move(run), etsi, 85);
        }
        if (dd == 10) {
            QString text = shortDataText(body, bodySize);
            const QString family = familyOf(text, QStringLiteral("motorola"));
            const char* format = text.isEmpty() ? "short_data_bin" : "short_data_ascii";
            return result(dd, format, std::move(text), family, 85);
        }
    }
    if (looksLikeUcs2(p, n, true))
        return result(dd, "ucs2_be", ucs2(p, n, true), QStringLiteral("china_family"), 70);
    if (looksLikeUcs2(p, n, false))
        return result(dd, "ucs2_le", ucs2(p, n, false), etsi, 70);
    if (QString run = asciiRun(p, n); !run.isEmpty()) {
        const QString family = familyOf(run, unknown);
        return result(dd, "ascii_run", std::move(run), family, 50);
    }
    return result(dd, "bin", {}, unknown, 0);
}

} // namespace zl::dmr
