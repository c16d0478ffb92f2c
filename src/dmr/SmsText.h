#pragma once

#include <QString>

#include <cstdint>

namespace zl::dmr {

// What a data call's payload was recognised as.
struct DecodedText {
    // How the bytes were read, e.g. "etsi_ucs2_le", "short_data_ascii", "bin".
    QString format;
    // The first payload byte: the encoding a data call names, where it names one.
    uint8_t dd = 0;
    QString text;
    // Which makers' radios send it that way: "etsi", "anytone_tyt", "motorola", ...
    QString family;
    int confidence = 0;
};

// Radios carry text in incompatible ways; a fixed order of tests picks the first reading that fits,
// from the most specific (an IP packet with the AnyTone marker) down to any run of ASCII.
DecodedText decodeSmsText(const uint8_t* bytes, int size);

} // namespace zl::dmr
