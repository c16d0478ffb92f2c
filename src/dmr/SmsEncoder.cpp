#include "SmsEncoder.h"

#include "app/CrcCcitt.h"
#include "dmr/BPTC19696.h"
#include "dmr/Bits.h"
#include "dmr/DmrdFrame.h"
#include "dmr/SlotType.h"
#include "dmr/Sync.h"

#include <atomic>

namespace zl::dmr {

namespace {

constexpr uint8_t kDdUtf16Le = 4;
constexpr uint8_t kDdShortData = 10;
constexpr uint8_t kSapIpPacket = 4;
constexpr uint8_t kPreambleCsbko = 0xBD;
constexpr int kPreambles = 4;
constexpr uint16_t kCsbkCrcMask = 0xA5A5;
constexpr uint16_t kDataHeaderCrcMask = 0xCCCC;
constexpr uint16_t kAnytonePort = 0x0FA7;
constexpr char kAnytoneMarker[] = {0x04, 0x0D, 0x00, 0x0A};

std::atomic<uint16_t> ipIdentification{1};
std::atomic<uint8_t> anytoneMessageNumber{0x82};

void putBe16(QByteArray& out, int at, uint16_t v)
{
    writeBe(reinterpret_cast<uint8_t*>(out.data()) + at, 2, v);
}

// Ones' complement sum of 16-bit words, as IP and UDP checksums add.
uint32_t onesSum(const QByteArray& bytes, uint32_t sum = 0)
{
    for (qsizetype i = 0; i < bytes.size(); i += 2) {
        const uint32_t low = i + 1 < bytes.size() ? uint8_t(bytes[i + 1]) : 0;
        sum += (uint32_t(uint8_t(bytes[i])) << 8) | low;
    }
    while (sum >> 16)
        sum = (sum & 0xFFFF) + (sum >> 16);
    return sum;
}

void appendUtf16Be(QByteArray& out, const QString& text)
{
    for (QChar c : text) {
        out.append(char(c.unicode() >> 8));
        out.append(char(c.unicode() & 0xFF));
    }
}

QByteArray shortDataBytes(const QString& text)
{
    QByteArray out;
    for (char c : text.toUtf8()) {
        const auto b = uint8_t(c);
        if (b == '\t' || b == '\n' || b == '\r')
            out.append(' ');
        else if (b >= 0x20 && b <= 0x7E)
            out.append(c);
        else if ((b & 0xC0) != 0x80) // one mark per character, not per byte of it
            out.append('?');
    }
    return out;
}

QByteArray burstFrom(const uint8_t* block12, uint8_t dataType, uint8_t colorCode)
{
    QByteArray burst(kBurstSize, '\0');
    auto* b = reinterpret_cast<uint8_t*>(burst.data());
    BPTC19696().encode(block12, b);
    slotTypeEncode(colorCode, dataType, b);
    writeSync(kBsDataSync, b);
    return burst;
}

void sealWithCrc(uint8_t* block12, uint16_t mask)
{
    const uint16_t crc = crcCcitt(QByteArrayView(block12, 10)) ^ mask;
    block12[10] = uint8_t(crc >> 8);
    block12[11] = uint8_t(crc);
}

} // namespace

QString smsFormatName(const QString& format)
{
    if (format == QLatin1String("anytone") || format == QLatin1String("short_data"))
        return format;
    return QStringLiteral("etsi");
}

QByteArray anytoneIpPacket(uint32_t srcId, uint32_t dstId, const QString& text)
{
    const int n = int(text.size());
    QByteArray p(37, '\0');
    p[0] = 0x45;
    putBe16(p, 2, uint16_t(2 * n + 38));
    putBe16(p, 4, ipIdentification.fetch_add(1));
    p[8] = 0x40;
    p[9] = 17;
    // Addresses in the 12.x.x.x network, the radio's DMR ID in the low three bytes.
    p[12] = 12;
    writeBe(reinterpret_cast<uint8_t*>(p.data()) + 13, 3, srcId);
    p[16] = 12;
    writeBe(reinterpret_cast<uint8_t*>(p.data()) + 17, 3, dstId);
    putBe16(p, 20, kAnytonePort);
    putBe16(p, 22, kAnytonePort);
    const auto udpLength = uint16_t(2 * n + 18);
    putBe16(p, 24, udpLength);
    p[29] = char(2 * n + 8);
    p[30] = char(0xA0);
    p[31] = char(anytoneMessageNumber.fetch_add(1));
    p.replace(33, 4, QByteArray(kAnytoneMarker, sizeof kAnytoneMarker));
    appendUtf16Be(p, text);
    p.append('\0');
    putBe16(p, 10, uint16_t(~onesSum(p.first(20))));
    QByteArray pseudo = p.mid(12, 8);
    pseudo.append('\0');
    pseudo.append(char(17));
    pseudo.append(char(udpLength >> 8));
    pseudo.append(char(udpLength & 0xFF));
    const auto udpSum = uint16_t(~onesSum(p.mid(20), onesSum(pseudo)));
    putBe16(p, 26, udpSum == 0 ? 0xFFFF : udpSum);
    return p;
}

SmsPdu smsPdu(const QString& text, const QString& format, uint32_t srcId, uint32_t dstId)
{
    const QString name = smsFormatName(format);
    if (name == QLatin1String("anytone"))
        return {anytoneIpPacket(srcId, dstId, text), kSapIpPacket};
    if (name == QLatin1String("short_data"))
        return {char(kDdShortData) + shortDataBytes(text), 0};
    QByteArray bytes(1, char(kDdUtf16Le));
    for (QChar c : text) {
        bytes.append(char(c.unicode() & 0xFF));
        bytes.append(char(c.unicode() >> 8));
    }
    return {bytes, 0};
}

uint32_t dataCallCrc32(const QByteArray& buffer)
{
    uint32_t crc = 0;
    for (qsizetype i = 0; i < buffer.size(); ++i) {
        const qsizetype swapped = (i % 2 == 0) ? i + 1 : i - 1;
        const auto byte = uint8_t(swapped < buffer.size() ? buffer[swapped] : buffer[i]);
        crc ^= uint32_t(byte) << 24;
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc & 0x80000000U) ? (crc << 1) ^ 0x04C11DB7U : crc << 1;
    }
    return crc;
}

DataCallFrames buildDataCall(const SmsPdu& pdu, uint32_t srcId, uint32_t dstId, int slot, bool privateCall,
                             uint32_t streamId, uint32_t peerId, uint8_t colorCode)
{
    const int n = int(pdu.bytes.size());
    DataCallFrames out;
    // The last block carries 8 bytes of data and the CRC-32; every other one 12.
    out.blocks = n < 9 ? 1 : (n + 3) / 12 + 1;
    const int capacity = (out.blocks - 1) * 12 + 8;
    out.pad = std::max(0, capacity - n);
    QByteArray buffer = pdu.bytes;
    buffer.resize(capacity, '\0');

    DmrdHeader header;
    header.srcId = srcId;
    header.dstId = dstId;
    header.peerId = peerId;
    header.streamId = streamId;
    auto emitBurst = [&](uint8_t dataType, const uint8_t* block12) {
        header.flags = dataFlags(slot, privateCall, dataType);
        out.frames.append(buildDmrd(header, burstFrom(block12, dataType, colorCode)));
        ++header.seq;
    };

    for (int i = 0; i < kPreambles; ++i) {
        uint8_t csbk[12] = {kPreambleCsbko, 0x00, uint8_t(privateCall ? 0x80 : 0xC0),
                            uint8_t(out.blocks + kPreambles - i)};
        writeBe(csbk + 4, 3, dstId);
        writeBe(csbk + 7, 3, srcId);
        sealWithCrc(csbk, kCsbkCrcMask);
        emitBurst(DataType::Csbk, csbk);
    }

    uint8_t dataHeader[12] = {uint8_t((privateCall ? 0 : 0x80) | (out.pad & 0x10) | 2),
                              uint8_t((pdu.sap << 4) | (out.pad & 0x0F))};
    writeBe(dataHeader + 2, 3, dstId);
    writeBe(dataHeader + 5, 3, srcId);
    dataHeader[8] = uint8_t(0x80 | out.blocks);
    sealWithCrc(dataHeader, kDataHeaderCrcMask);
    emitBurst(DataType::DataHeader, dataHeader);

    const uint32_t crc = dataCallCrc32(buffer);
    for (int b = 0; b < out.blocks; ++b) {
        uint8_t block[12] = {};
        const bool last = b == out.blocks - 1;
        const QByteArray part = buffer.mid(b * 12, last ? 8 : 12);
        std::copy(part.cbegin(), part.cend(), block);
        if (last) {
            for (int k = 0; k < 4; ++k)
                block[8 + k] = uint8_t(crc >> (8 * k));
        }
        emitBurst(DataType::Rate12Data, block);
    }
    return out;
}

} // namespace zl::dmr
