#include "M17Voice.h"

#include "M17StreamFrame.h"

#include <QDebug>
#include <QRandomGenerator>

#include <cstring>

#include <codec2/codec2.h>

namespace zl::m17 {

namespace {
constexpr int kSamplesPerCodec2Frame = 160;
constexpr qsizetype kBytesPerCodec2Frame = kSamplesPerCodec2Frame * 2;
constexpr qsizetype kBytesPerStreamFrame = 2 * kBytesPerCodec2Frame; // 40 ms
// The end of a stream matters more than a duplicate: the last frame goes out this often.
constexpr int kEndFrameRepeats = 5;
} // namespace

M17Voice::M17Voice(QObject* parent)
    : QObject(parent), encoder(codec2_create(CODEC2_MODE_3200)), decoder(codec2_create(CODEC2_MODE_3200))
{
}

M17Voice::~M17Voice()
{
    codec2_destroy(encoder);
    codec2_destroy(decoder);
}

void M17Voice::startTx(const QString& ownCallsign)
{
    callsign = ownCallsign;
    txActive = true;
    streamId = quint16(QRandomGenerator::global()->bounded(1, 65535));
    frameNumber = 0;
    framesSent = 0;
    txBuffer.clear();
    qInfo() << "M17: TX start as" << callsign << "stream" << streamId;
}

void M17Voice::pushMicPcm(const QByteArray& pcm)
{
    if (!txActive)
        return;
    txBuffer.append(pcm);
    while (txBuffer.size() >= kBytesPerStreamFrame) {
        const QByteArray frame = encodeFrame(txBuffer.first(kBytesPerStreamFrame), false);
        if (!frame.isEmpty()) {
            emit frameReady(frame);
            ++framesSent;
        }
        txBuffer.remove(0, kBytesPerStreamFrame);
        frameNumber = (frameNumber + 1) % 0x8000;
    }
}

void M17Voice::stopTx()
{
    if (!txActive)
        return;
    QByteArray rest = txBuffer;
    rest.append(QByteArray(kBytesPerStreamFrame - rest.size(), '\0'));
    const QByteArray last = encodeFrame(rest, true);
    if (!last.isEmpty()) {
        for (int i = 0; i < kEndFrameRepeats; ++i) {
            emit frameReady(last);
            ++framesSent;
        }
    }
    txActive = false;
    txBuffer.clear();
    qInfo() << "M17: TX stop, frames sent" << framesSent;
}

QByteArray M17Voice::encodeFrame(const QByteArray& pcm40ms, bool endOfStream)
{
    QByteArray first(frame::kCodec2Size, '\0');
    QByteArray second(frame::kCodec2Size, '\0');
    // Codec2 wants aligned, writable samples; the byte array's data may be neither.
    short samples[kSamplesPerCodec2Frame];
    std::memcpy(samples, pcm40ms.constData(), kBytesPerCodec2Frame);
    codec2_encode(encoder, reinterpret_cast<unsigned char*>(first.data()), samples);
    std::memcpy(samples, pcm40ms.constData() + kBytesPerCodec2Frame, kBytesPerCodec2Frame);
    codec2_encode(encoder, reinterpret_cast<unsigned char*>(second.data()), samples);
    return buildStreamFrame(callsign, QStringLiteral("ALL"), streamId, frameNumber, endOfStream, first, second);
}

void M17Voice::onVoiceFrame(const QByteArray& data)
{
    if (!isStreamFrame(data))
        return;
    const quint16 id = streamIdOf(data);
    // Reflectors repeat the last frame of a stream: what comes after its end is not a new talker.
    if (!rxActive && endedStreamValid && id == endedStreamId)
        return;
    if (!rxActive || id != rxStreamId) {
        rxActive = true;
        rxStreamId = id;
        const QString source = sourceOf(data);
        qInfo() << "M17: rx talker" << source << "stream" << id;
        emit talkerStarted(source, id);
    }
    for (qsizetype offset : {frame::kCodec2First, frame::kCodec2Second}) {
        QByteArray pcm(kBytesPerCodec2Frame, '\0');
        short samples[kSamplesPerCodec2Frame];
        codec2_decode(decoder, samples, reinterpret_cast<const unsigned char*>(data.constData() + offset));
        std::memcpy(pcm.data(), samples, kBytesPerCodec2Frame);
        emit rxPcm(pcm);
    }
    if (isEndOfStream(data)) {
        rxActive = false;
        rxStreamId = 0;
        endedStreamId = id;
        endedStreamValid = true;
    }
}

} // namespace zl::m17
