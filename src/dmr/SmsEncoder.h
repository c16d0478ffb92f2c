#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include <cstdint>

namespace zl::dmr {

// The three ways this program sends text: "etsi" (UTF-16 LE behind the byte 4), "anytone" (an
// IPv4/UDP packet with UTF-16 BE, as AnyTone and TYT radios send), "short_data" (ASCII behind the
// byte 10, as Motorola radios read it). Any other name is taken as "etsi".
QString smsFormatName(const QString& format);

struct SmsPdu {
    QByteArray bytes;
    uint8_t sap = 0;
};
SmsPdu smsPdu(const QString& text, const QString& format, uint32_t srcId, uint32_t dstId);

// The IPv4/UDP packet around an AnyTone text; identification and message number are process-wide
// counters, so that two messages in a row are never taken for a repeat.
QByteArray anytoneIpPacket(uint32_t srcId, uint32_t dstId, const QString& text);

// CRC-32 of unconfirmed data: polynomial 0x04C11DB7, register 0, most significant bit first, over
// the data with the two bytes of every 16-bit pair swapped, as the air interface orders them.
uint32_t dataCallCrc32(const QByteArray& buffer);

struct DataCallFrames {
    QList<QByteArray> frames;
    int blocks = 0;
    int pad = 0;
};

// The complete unconfirmed data call as DMRD frames, in sending order: four preamble CSBKs that
// wake the receiving radio, the data header, and the rate 1/2 blocks with the CRC-32 in the last.
DataCallFrames buildDataCall(const SmsPdu& pdu, uint32_t srcId, uint32_t dstId, int slot, bool privateCall,
                             uint32_t streamId, uint32_t peerId, uint8_t colorCode);

} // namespace zl::dmr
