#include "YsfVoice.h"

#include "YsfFich.h"
#include "YsfFrame.h"
#include "YsfPayload.h"
#include "YsfVoiceField.h"
#include "hw/Dv3000.h"

#include <QDateTime>
#include <QDebug>
#include <QTimer>

namespace zl::ysf {

namespace {
// Our own transmission comes back from the reflector for a while: receive stays mute.
constexpr qint64 kRxHoldoffMs = 1000;
} // namespace

YsfVoice::YsfVoice(zl::hw::Dv3000Pool* pool, QObject* parent)
    : QObject(parent), rxChip(pool), rxIdleTimer(new QTimer(this)), txChip(pool),
      clock([] { return QDateTime::currentMSecsSinceEpoch(); })
{
    rxIdleTimer->setSingleShot(true);
    rxIdleTimer->setInterval(1500);
    connect(rxIdleTimer, &QTimer::timeout, this, &YsfVoice::onRxIdle);
}

YsfVoice::~YsfVoice() = default;

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
    txChip.dropSpeech();
    if (txChip.acquire(QStringLiteral("YsfVoice: TX chip")))
        connect(txChip.chip(), &zl::hw::Dv3000::ambeFrameReady, this, &YsfVoice::onTxAmbe);
    qInfo() << "YsfVoice: TX start as" << source << "-> " << destination << "DG-ID" << dgId;
    sendPayload(0);
}

void YsfVoice::pushMicPcm(const QByteArray& pcm)
{
    if (!txActive)
        return;
    if (txChip.moveIfFailed(QStringLiteral("YsfVoice: TX chip")))
        connect(txChip.chip(), &zl::hw::Dv3000::ambeFrameReady, this, &YsfVoice::onTxAmbe);
    txChip.pushSpeech(pcm);
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
    if (txChip.chip())
        disconnect(txChip.chip(), nullptr, this, nullptr);
    txChip.release();
    txActive = false;
    // Frames that don't fill a block are dropped.
    ambeBlock.clear();
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
    if (rxChip.acquire(QStringLiteral("YsfVoice: RX chip")) || rxChip.moveIfFailed(QStringLiteral("YsfVoice: RX chip")))
        connect(rxChip.chip(), &zl::hw::Dv3000::pcmFrameReady, this, &YsfVoice::pcmReady);
    for (int i = 0; i < kVoiceFieldsPerFrame; ++i)
        rxChip.postChannel(voiceFieldToChipFrame(frame.payload.mid(voiceFieldOffset(i), kVoiceFieldSize)));
}

void YsfVoice::onRxIdle()
{
    if (rxTalking) {
        rxTalking = false;
        emit talkerStop();
    }
    if (rxChip.chip())
        disconnect(rxChip.chip(), nullptr, this, nullptr);
    rxChip.release();
}

} // namespace zl::ysf
