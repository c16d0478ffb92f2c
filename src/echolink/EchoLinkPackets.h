#pragma once

#include <QByteArray>
#include <QString>

// The datagrams of an EchoLink connection. Audio and text travel to port 5198, the RTCP-style
// control packets (SDES, BYE) to port 5199.
namespace zl::echolink {

constexpr int kGsmFrameBytes = 33;
constexpr int kGsmFramesPerPacket = 4;
constexpr int kAudioHeaderBytes = 12;
constexpr int kAudioPacketBytes = kAudioHeaderBytes + kGsmFrameBytes * kGsmFramesPerPacket; // 144
constexpr quint8 kRtcpSdes = 202;
constexpr quint8 kRtcpBye = 203;

// RTP header for GSM (payload type 3) followed by four 33-byte GSM frames.
QByteArray audioPacket(quint16 sequence, const QByteArray& gsmFrames);

// Empty receiver report, then SDES naming the station: callsign padded to 15 characters and the
// operator name form the item that the far end shows.
QByteArray sdesPacket(const QString& callsign, const QString& name);

// Empty receiver report, then BYE with the customary reason text.
QByteArray byePacket();

// "oNDATA", CR, description with line feeds turned into CR, NUL.
QByteArray infoPacket(const QString& description);

// "oNDATA", "CALL>text", CR LF, NUL.
QByteArray chatPacket(const QString& callsign, const QString& text);

struct TextMessage {
    enum class Kind { None, Info, Chat };
    Kind kind = Kind::None;
    QString text;
};

// A datagram on the audio port whose first byte isn't 0xC0. Info keeps its lines (CR becomes
// LF); a chat line is trimmed.
TextMessage parseTextPacket(const QByteArray& datagram);

// The callsign in the name item (type 2) of an SDES packet: the text up to the first blank,
// upper-cased; empty without such an item.
QString sdesCallsign(const QByteArray& datagram);

} // namespace zl::echolink
