#pragma once

#include <QByteArray>

struct gsm_state;

namespace zl::echolink {

// One GSM 06.10 encoder and one decoder, each keeping the filter state of its direction.
class GsmCodec {
public:
    static constexpr int kFrameSamples = 160;
    static constexpr int kPcmBytes = kFrameSamples * 2;
    static constexpr int kFrameBytes = 33;

    GsmCodec();
    ~GsmCodec();
    GsmCodec(const GsmCodec&) = delete;
    GsmCodec& operator=(const GsmCodec&) = delete;

    // 320 bytes of little-endian 16-bit PCM at 8 kHz to one 33-byte frame.
    QByteArray encode(const QByteArray& pcm);
    // One 33-byte frame to 320 bytes of PCM; a frame that libgsm refuses gives silence.
    QByteArray decode(const QByteArray& frame);

private:
    gsm_state* encoder;
    gsm_state* decoder;
};

} // namespace zl::echolink
