#pragma once

#include <QByteArray>

#include <memory>

struct OpusEncoder;
struct OpusDecoder;

namespace zl::svx {

// UDP message types; the same in both protocol versions.
namespace udp {
enum : quint16 { Heartbeat = 1, Audio = 101, FlushSamples = 102 };
}

constexpr int kOpusRate = 16000;
constexpr int kOpusFrameSamples = 320; // 20 ms at 16 kHz
constexpr int kOpusMaxPacket = 1024;
constexpr int kOpusDecodeCapacity = 1920;

struct OpusEncoderFree {
    void operator()(OpusEncoder* e) const;
};
struct OpusDecoderFree {
    void operator()(OpusDecoder* d) const;
};
using OpusEncoderPtr = std::unique_ptr<OpusEncoder, OpusEncoderFree>;
using OpusDecoderPtr = std::unique_ptr<OpusDecoder, OpusDecoderFree>;

// Voice settings of the reflector network: 16 kHz mono VoIP at 16 kbit/s with in-band FEC.
// Empty on failure.
OpusEncoderPtr makeOpusEncoder();
OpusDecoderPtr makeOpusDecoder();

// 16 kHz samples to 8 kHz by averaging pairs (truncating toward zero); an odd last
// sample is dropped.
QByteArray downsampleTo8k(const qint16* in, int count);
// 8 kHz samples to 16 kHz: each sample x gives (prev + x) / 2 and x; prev carries the
// last sample across calls.
QByteArray upsampleTo16k(const QByteArray& pcm8k, qint16& prev);

// One Opus packet decoded and brought to 8 kHz; empty when nothing came out.
QByteArray decodeTo8k(OpusDecoder* decoder, const QByteArray& packet, int* decoded16k = nullptr);
// One 320-sample frame at 16 kHz encoded; empty when the encoder gave nothing.
QByteArray encodeFrame16k(OpusEncoder* encoder, const qint16* pcm16k);

// The Opus data of an audio message, clipped to what's present; empty for anything else.
// Version 2 datagrams carry the 6-byte clear header, version 3 plaintexts only the type.
QByteArray audioOfV2Datagram(const QByteArray& datagram);
QByteArray audioOfV3Message(const QByteArray& inner);
QByteArray encodeUdpV2(quint16 type, quint16 clientId, quint16 seq, const QByteArray& payload);
QByteArray audioPayload(const QByteArray& packet);

} // namespace zl::svx
