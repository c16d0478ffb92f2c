#include "YsfVoice.h"

#include "YsfFich.h"
#include "YsfFrame.h"
#include "YsfPayload.h"
#include "YsfVoiceField.h"

#include <QDateTime>
#include <QDebug>

namespace zl::ysf {

namespace {
// Our own transmission comes back from the reflector for a while: receive stays mute.
constexpr qint64 kRxHoldoffMs = 1000;
} // namespace

YsfVoice::YsfVoice(zl::hw::Dv3000Pool* pool, QObject* parent)
    : AmbeVoicePath(QStringLiteral("YsfVoice"), pool, parent), clock([] { return QDateTime::currentMSecsSinceEpoch(); })
{
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
    if (isTransmitting())
        return;
    frameCounter = 0;
    frameNumber = 0;
    ambeBlock.clear();
    beginTx();
    qInfo() << "YsfVoice: TX start as" << source << "-> " << destination << "DG-ID" << dgId;
    sendPayload(0);
}

void YsfVoice::onTxAmbe(const QByteArray& frame)
{
    if (!isTransmitting() || frame.size() < 9)
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
    if (!isTransmitting())
        return;
    sendPayload(2);
    endTx();
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
    if (isTransmitting() || clock() < rxHoldoffUntil)
        return;
    Ysfd frame;
    if (!parseYsfd(ysfd155, frame))
        return;
    heard();
    const std::optional<Fich> fich = decodeFich(frame.payload.mid(kFichOffset, kFichFieldSize));
    if (!fich)
        return;
    if (rxDgIdFilter != 0 && rxDgIdFilter != fich->sq)
        return;

    if (fich->fi == 0) {
        rxSource = frame.source;
        if (beginTalk())
            emit talkerStart(rxSource);
        return;
    }
    if (fich->fi == 2) {
        endTalk();
        return;
    }
    if (fich->fi != 1 || fich->dt != 2)
        return;
    if (beginTalk()) {
        rxSource = frame.source;
        emit talkerStart(rxSource);
    }
    for (int i = 0; i < kVoiceFieldsPerFrame; ++i)
        decode(voiceFieldToChipFrame(frame.payload.mid(voiceFieldOffset(i), kVoiceFieldSize)));
}

} // namespace zl::ysf
