#pragma once

#include <QByteArray>
#include <QHash>
#include <QtGlobal>

#include <optional>

// IAX2 frames on the wire: full frames with their 12-byte header, mini voice frames, and
// information elements.
namespace zl::iax {

namespace FrameType {
constexpr quint8 Dtmf = 1;
constexpr quint8 Voice = 2;
constexpr quint8 Control = 4;
constexpr quint8 Iax = 6;
} // namespace FrameType

namespace IaxSubclass {
constexpr quint32 New = 1;
constexpr quint32 Ping = 2;
constexpr quint32 Pong = 3;
constexpr quint32 Ack = 4;
constexpr quint32 Hangup = 5;
constexpr quint32 Reject = 6;
constexpr quint32 Accept = 7;
constexpr quint32 AuthReq = 8;
constexpr quint32 AuthRep = 9;
constexpr quint32 Inval = 10;
constexpr quint32 LagRq = 11;
constexpr quint32 LagRp = 12;
constexpr quint32 Poke = 30;
constexpr quint32 CallToken = 40;
} // namespace IaxSubclass

namespace ControlSubclass {
constexpr quint32 Hangup = 1;
constexpr quint32 Ringing = 3;
constexpr quint32 Answer = 4;
} // namespace ControlSubclass

namespace Ie {
constexpr quint8 CalledNumber = 1;
constexpr quint8 CallingNumber = 2;
constexpr quint8 CallingName = 4;
constexpr quint8 Username = 6;
constexpr quint8 Format = 8;
constexpr quint8 Capability = 9;
constexpr quint8 Version = 11;
constexpr quint8 Challenge = 15;
constexpr quint8 Md5Result = 16;
constexpr quint8 Cause = 22;
constexpr quint8 CallToken = 54;
} // namespace Ie

constexpr quint32 kFormatMuLaw = 4;
constexpr int kFullHeaderBytes = 12;

struct FullFrame {
    quint16 srcCall = 0;
    quint16 dstCall = 0;
    bool retransmitted = false;
    quint32 timestamp = 0;
    quint8 oseq = 0;
    quint8 iseq = 0;
    quint8 type = 0;
    quint32 subclass = 0;
    QByteArray payload;
};

// Subclass byte: values of 128 and more travel as a power of two, bit 7 set and the exponent in
// the low bits.
quint8 encodeSubclass(quint32 subclass);
quint32 decodeSubclass(quint8 coded);

bool isFullFrame(const QByteArray& datagram);
std::optional<FullFrame> parseFullFrame(const QByteArray& datagram);
QByteArray fullFrame(const FullFrame& frame);
// Source call number and the low 16 bits of the timestamp, then the audio.
QByteArray miniFrame(quint16 srcCall, quint16 timestamp, const QByteArray& audio);

// Elements by type; an element that overruns the payload ends the list with what came before.
QHash<quint8, QByteArray> parseIes(const QByteArray& payload);
void appendIe(QByteArray& payload, quint8 type, const QByteArray& value);

} // namespace zl::iax
