#include "NxdnVoice.h"

#include "NxdnAmbe.h"
#include "NxdnFrame.h"
#include "hw/Dv3000.h"
#include "hw/Dv3000Pool.h"

#include <QDebug>
#include <QTimer>

namespace zl::nxdn {

namespace {
constexpr int kAmbeRate = 33;
constexpr qsizetype kPcmFrameBytes = 320;
// Fills a voice block that the speech ended in the middle of.
const QByteArray kAmbeSilence = QByteArray::fromHex("b9e881526173002a6b");
} // namespace

NxdnVoice::NxdnVoice(zl::hw::Dv3000Pool* vocoders, QObject* parent)
    : QObject(parent), pool(vocoders ? vocoders : zl::hw::Dv3000Pool::instance()), rxIdleTimer(new QTimer(this)),
      txBlock(kPayloadSize, '\0')
{
    rxIdleTimer->setSingleShot(true);
    rxIdleTimer->setInterval(1500);
    connect(rxIdleTimer, &QTimer::timeout, this, &NxdnVoice::onRxIdle);
}

NxdnVoice::~NxdnVoice()
{
    if (rxChip)
        pool->release(rxChip);
    releaseTxChip();
}

void NxdnVoice::setRxIdleInterval(int ms)
{
    rxIdleTimer->setInterval(ms);
}

void NxdnVoice::setIdentity(quint16 source, quint16 talkgroup, int radioAccessNumber)
{
    sourceId = source;
    tg = talkgroup;
    ran = radioAccessNumber;
}

void NxdnVoice::startTx()
{
    if (txActive)
        return;
    txActive = true;
    headerPending = true;
    ambeCount = 0;
    voiceCounter = 0;
    pcmBuffer.clear();
    txBlock.fill('\0');
    if (!txChip)
        txChip = pool->acquire(kAmbeRate);
    qInfo() << "NxdnVoice: TX chip" << (txChip ? "acquired" : "(none — no AMBE stick)");
    if (txChip)
        txConnection = connect(txChip, &zl::hw::Dv3000::ambeFrameReady, this, &NxdnVoice::onTxAmbe);
    qInfo() << "NxdnVoice: TX start src" << sourceId << "-> TG" << tg << "RAN" << ran;
}

void NxdnVoice::pushMicPcm(const QByteArray& pcm)
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

void NxdnVoice::onTxAmbe(const QByteArray& frame)
{
    if (!txActive || frame.size() < 9)
        return;
    putAmbe(txBlock, ambeCount, frame);
    if (++ambeCount == kAmbePerBlock)
        flush();
}

void NxdnVoice::flush()
{
    if (headerPending) {
        headerPending = false;
        emit frameReady(
            buildNxdnd(sourceId, tg, flags::kHeader | flags::kVoice, buildHeaderFrame(false, sourceId, tg, ran)));
    }
    finishVoiceFrame(txBlock, voiceCounter++, sourceId, tg, ran);
    emit frameReady(buildNxdnd(sourceId, tg, flags::kVoice, txBlock));
    txBlock.fill('\0');
    ambeCount = 0;
}

void NxdnVoice::stopTx()
{
    if (!txActive)
        return;
    // Nothing went out yet: the frames made so far are dropped and nothing is sent.
    if (!headerPending) {
        if (ambeCount > 0) {
            while (ambeCount < kAmbePerBlock)
                putAmbe(txBlock, ambeCount++, kAmbeSilence);
            flush();
        }
        emit frameReady(
            buildNxdnd(sourceId, tg, flags::kEnd | flags::kVoice, buildHeaderFrame(true, sourceId, tg, ran)));
    }
    releaseTxChip();
    txActive = false;
    pcmBuffer.clear();
}

void NxdnVoice::releaseTxChip()
{
    if (!txChip)
        return;
    disconnect(txConnection);
    pool->release(txChip);
    txChip = nullptr;
}

void NxdnVoice::onNetworkFrame(const QByteArray& nxdnd43)
{
    Nxdnd frame;
    if (!parseNxdnd(nxdnd43, frame))
        return;
    rxIdleTimer->start();
    if (!rxTalking || frame.source != rxSource) {
        rxSource = frame.source;
        rxTalking = true;
        emit talkerStart(rxSource);
    }
    if (!(frame.flags & flags::kData)) {
        if (!rxChip) {
            rxChip = pool->acquire(kAmbeRate);
            qInfo() << "NxdnVoice: RX chip" << (rxChip ? "acquired" : "(none — no AMBE stick)");
            if (rxChip)
                connect(rxChip, &zl::hw::Dv3000::pcmFrameReady, this, &NxdnVoice::pcmReady);
        }
        // Header frames take this path too: their FACCH bits play as a short burst.
        for (int slot = 0; rxChip && slot < kAmbePerBlock; ++slot) {
            const QByteArray chipFrame = ambeAt(frame.payload, slot);
            zl::hw::Dv3000* chip = rxChip;
            QMetaObject::invokeMethod(
                chip, [chip, chipFrame] { chip->postChannel(chipFrame, 72); }, Qt::QueuedConnection);
        }
    }
    if ((frame.flags & flags::kEnd) && rxTalking) {
        rxTalking = false;
        emit talkerStop();
    }
}

void NxdnVoice::onRxIdle()
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

} // namespace zl::nxdn
