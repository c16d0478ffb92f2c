#include "NxdnVoice.h"

#include "NxdnAmbe.h"
#include "NxdnFrame.h"
#include "hw/Dv3000.h"

#include <QDebug>
#include <QTimer>

namespace zl::nxdn {

namespace {
// Fills a voice block that the speech ended in the middle of.
const QByteArray kAmbeSilence = QByteArray::fromHex("b9e881526173002a6b");
} // namespace

NxdnVoice::NxdnVoice(zl::hw::Dv3000Pool* pool, QObject* parent)
    : QObject(parent), rxChip(pool), rxIdleTimer(new QTimer(this)), txChip(pool), txBlock(kPayloadSize, '\0')
{
    rxIdleTimer->setSingleShot(true);
    rxIdleTimer->setInterval(1500);
    connect(rxIdleTimer, &QTimer::timeout, this, &NxdnVoice::onRxIdle);
}

NxdnVoice::~NxdnVoice() = default;

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
    txChip.dropSpeech();
    txBlock.fill('\0');
    if (txChip.acquire(QStringLiteral("NxdnVoice: TX chip")))
        connect(txChip.chip(), &zl::hw::Dv3000::ambeFrameReady, this, &NxdnVoice::onTxAmbe);
    qInfo() << "NxdnVoice: TX start src" << sourceId << "-> TG" << tg << "RAN" << ran;
}

void NxdnVoice::pushMicPcm(const QByteArray& pcm)
{
    if (!txActive)
        return;
    if (txChip.moveIfFailed(QStringLiteral("NxdnVoice: TX chip")))
        connect(txChip.chip(), &zl::hw::Dv3000::ambeFrameReady, this, &NxdnVoice::onTxAmbe);
    txChip.pushSpeech(pcm);
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
}

void NxdnVoice::releaseTxChip()
{
    if (txChip.chip())
        disconnect(txChip.chip(), nullptr, this, nullptr);
    txChip.release();
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
        if (rxChip.acquire(QStringLiteral("NxdnVoice: RX chip")) ||
            rxChip.moveIfFailed(QStringLiteral("NxdnVoice: RX chip")))
            connect(rxChip.chip(), &zl::hw::Dv3000::pcmFrameReady, this, &NxdnVoice::pcmReady);
        // Header frames take this path too: their FACCH bits play as a short burst.
        for (int slot = 0; slot < kAmbePerBlock; ++slot)
            rxChip.postChannel(ambeAt(frame.payload, slot));
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
    if (rxChip.chip())
        disconnect(rxChip.chip(), nullptr, this, nullptr);
    rxChip.release();
}

} // namespace zl::nxdn
