#include "YsfVoice.h"

#include "YsfFich.h"
#include "YsfFrame.h"
#include "YsfPayload.h"
#include "YsfVoiceField.h"
#include "hw/Dv3000.h"
#include "hw/Dv3000Pool.h"

#include <QDateTime>
#include <QDebug>
#include <QTimer>

namespace zl::ysf {

namespace {
constexpr int kAmbeRate = 33;
constexpr qsizetype kPcmFrameBytes = 320;
// Our own transmission comes back from the reflector for a while: receive stays mute.
constexpr qint64 kRxHoldoffMs = 1000;
} // namespace

YsfVoice::YsfVoice(zl::hw::Dv3000Pool* vocoders, QObject* parent)
    : QObject(parent), pool(vocoders ? vocoders : zl::hw::Dv3000Pool::instance()), rxIdleTimer(new QTimer(this)),
      clock([] { return QDateTime::currentMSecsSinceEpoch(); })
{
    rxIdleTimer->setSingleShot(true);
    rxIdleTimer->setInterval(1500);
    connect(rxIdleTimer, &QTimer::timeout, this, &YsfVoice::onRxIdle);
}

YsfVoice::~YsfVoice()
{
    if (rxChip)
        pool->release(rxChip);
    if (txChip)
        pool->release(txChip);
}

void YsfVoice::setRxIdleInterval(int ms)
{
    rxIdleTimer->setInterval(ms);
}

void YsfVoice::setIdentity(const QString& gw, const QString& src, const QString& dst, int dg)
{
    gateway = gw.toUpper();
    source = src.toUpper();
    destination = dst.isEmpty() ? QStringLiteral("ALL") : dst.toUpper();
    dgId = dg;
}

void YsfVoice::startTx()
{
    if (txActive)
        return;
    txActive = true;
    frameCounter = 0;
    frameNumber = 0;
    ambeBlock.clear();
    pcmBuffer.clear();
    if (!txChip)
        txChip = pool->acquire(kAmbeRate);
    qInfo() << "YsfVoice: TX chip" << (txChip ? "acquired" : "(none — no AMBE stick)");
    if (txChip)
        txConnection = connect(txChip, &zl::hw::Dv3000::ambeFrameReady, this, &YsfVoice::onTxAmbe);
    qInfo() << "YsfVoice: TX start as" << source << "-> " << destination << "DG-ID" << dgId;
    sendPayload(0);
}

void YsfVoice::pushMicPcm(const QByteArray& pcm)
{
    if (!txActive || !txChip)
        return;
    pcmBuffer.append(pcm);
    while (pcmBuffer.size() >= kPcmFrameBytes) {
        const QByteArray frame = pcmBuffer.first(kPcmFrameBytes);
        pcmBuffer.remove(0, kPcmFrameBytes);
        zl::hw::Dv3000* chip = txChip;
        QMetaObject::invokeMethod(
            chip, [chip, frame] { chip->postSpeech(frame); }, Qt::QueuedConnection);
    }
}

void YsfVoice::onTxAmbe(const QByteArray& frame)
{
    if (!txActive || frame.size() < 9)
        return;
    ambeBlock.append(chipFrameToVoiceField(frame));
    if (ambeBlock.size() < kVoiceFieldsPerFrame)
        return;
    sendPayload(1, ambeBlock);
    ambeBlock.clear();
    frameNumber = (frameNumber + 1) % 7;
}

void YsfVoice::stopTx()
{
    if (!txActive)
        return;
    sendPayload(2);
    if (txChip) {
        disconnect(txConnection);
        pool->release(txChip);
        txChip = nullptr;
    }
    txActive = false;
    // Frames that don't fill a block are dropped.
    ambeBlock.clear();
    pcmBuffer.clear();
    rxHoldoffUntil = clock() + kRxHoldoffMs;
}

void YsfVoice::sendPayload(int fi, const QList<QByteArray>& block)
{
    const QByteArray payload = buildPayload(fi, frameNumber, {source, destination, quint8(dgId)}, block);
    emit frameReady(buildYsfd(gateway, source, destination, frameCounter, fi == 2, payload));
    frameCounter = (frameCounter + 1) % 128;
}

void YsfVoice::onNetworkFrame(const QByteArray& ysfd155)
{
    if (txActive || clock() < rxHoldoffUntil)
        return;
    Ysfd frame;
    if (!parseYsfd(ysfd155, frame))
        return;
    rxIdleTimer->start();
    const std::optional<Fich> fich = decodeFich(frame.payload.mid(kFichOffset, kFichFieldSize));
    if (!fich)
        return;
    if (rxDgIdFilter != 0 && rxDgIdFilter != fich->sq)
        return;

    if (fich->fi == 0) {
        rxSource = frame.source;
        if (!rxTalking) {
            rxTalking = true;
            emit talkerStart(rxSource);
        }
        return;
    }
    if (fich->fi == 2) {
        if (rxTalking) {
            rxTalking = false;
            emit talkerStop();
        }
        return;
    }
    if (fich->fi != 1 || fich->dt != 2)
        return;
    if (!rxTalking) {
        rxSource = frame.source;
        rxTalking = true;
        emit talkerStart(rxSource);
    }
    ensureRxChip();
    if (!rxChip)
        return;
    for (int i = 0; i < kVoiceFieldsPerFrame; ++i) {
        const QByteArray chipFrame = voiceFieldToChipFrame(frame.payload.mid(voiceFieldOffset(i), kVoiceFieldSize));
        zl::hw::Dv3000* chip = rxChip;
        QMetaObject::invokeMethod(
            chip, [chip, chipFrame] { chip->postChannel(chipFrame, 72); }, Qt::QueuedConnection);
    }
}

void YsfVoice::ensureRxChip()
{
    if (rxChip)
        return;
    rxChip = pool->acquire(kAmbeRate);
    qInfo() << "YsfVoice: RX chip" << (rxChip ? "acquired" : "(none — no AMBE stick)");
    if (rxChip)
        connect(rxChip, &zl::hw::Dv3000::pcmFrameReady, this, &YsfVoice::pcmReady);
}

void YsfVoice::onRxIdle()
{
    if (rxTalking) {
        rxTalking = false;
        emit talkerStop();
    }
    if (rxChip) {
        disconnect(rxChip, nullptr, this, nullptr);
        pool->release(rxChip);
        rxChip = nullptr;
    }
}

} // namespace zl::ysf
