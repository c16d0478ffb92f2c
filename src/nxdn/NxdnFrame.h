#pragma once

#include <QByteArray>
#include <QString>

namespace zl::nxdn {

// Datagrams of the NXDN reflector protocol and the 33-byte payload they carry.
inline constexpr qsizetype kNxdndSize = 43;
inline constexpr qsizetype kPayloadSize = 33;
inline constexpr quint8 kLichHeader = 0x81; // header and end frames
inline constexpr quint8 kLichVoice = 0xAC;

namespace flags {
inline constexpr quint8 kVoice = 0x01;
inline constexpr quint8 kData = 0x02;
inline constexpr quint8 kHeader = 0x04;
inline constexpr quint8 kEnd = 0x08;
} // namespace flags

// "NXDNP" poll or "NXDNU" unlink: the tag, the callsign in 10 bytes, the talkgroup.
QByteArray buildNxdnControl(const char* tag, const QString& callsign, quint16 tg);

struct Nxdnd {
    quint16 source = 0;
    quint16 destination = 0;
    quint8 flags = 0;
    QByteArray payload; // 33 bytes
};

QByteArray buildNxdnd(quint16 source, quint16 destination, quint8 flags, const QByteArray& payload);
// False for anything shorter than 43 bytes or not starting with "NXDND".
bool parseNxdnd(const QByteArray& datagram, Nxdnd& out);

// CRC-6 of the SACCH: over the first bitCount bits of data, top bit first, register 0x3F,
// feedback polynomial 0x27.
quint8 crc6(const QByteArray& data, int bitCount);

// The layer-3 record of a call: message type 1 (voice call) or 8 (transmission release),
// call option 1, source and destination. 9 bytes.
QByteArray buildLc(quint8 messageType, quint16 source, quint16 destination);

// Four SACCH bytes: structure and RAN, 18 content bits, CRC-6.
QByteArray buildSacch(int structure, int ran, quint32 content18);

// A header (end false) or end frame (end true): LICH 0x81, idle SACCH, the LC twice as FACCH.
QByteArray buildHeaderFrame(bool end, quint16 source, quint16 destination, int ran);

// Fills LICH and SACCH of a voice block whose AMBE bits are already in place: the SACCH of
// voice frame `counter` carries LC bits 18k..18k+17 (k = counter mod 4) with structure 3 - k.
void finishVoiceFrame(QByteArray& block33, unsigned counter, quint16 source, quint16 destination, int ran);

} // namespace zl::nxdn
