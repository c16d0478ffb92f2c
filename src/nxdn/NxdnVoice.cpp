#include "NxdnVoice.h"

#include "NxdnAmbe.h"
#include "NxdnFrame.h"

#include <QDebug>

namespace zl::nxdn {

namespace {
// Fills a voice block that the speech ended in the middle of.
const QByteArray kAmbeSilence = QByteArray::fromHex("b9e881526173002a6b");
} // namespace

NxdnVoice::NxdnVoice(zl::hw::Dv3000Pool* pool, QObject* parent)
    : AmbeVoicePath(QStringLiteral("NxdnVoice"), pool, parent), txBlock(kPayloadSize, '\0')
{
}

void NxdnVoice::setIdentity(quint16 source, quint16 talkgroup, int radioAccessNumber)
{
    sourceId = source;
    tg = talkgroup;
    ran = radioAccessNumber;
}

void NxdnVoice::startTx()
{
    if (isTransmitting())
        return;
    headerPending = true;
    ambeCount = 0;
    voiceCounter = 0;
    txBlock.fill('\0');
    beginTx();
    qInfo() << "NxdnVoice: TX start src" << sourceId << "-> TG" << tg << "RAN" << ran;
}

void NxdnVoice::onTxAmbe(const QByteArray& frame)
{
    if (!isTransmitting() || frame.size() < 9)
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
    if (!isTransmitting())
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
    endTx();
}

void NxdnVoice::onNetworkFrame(const QByteArray& nxdnd43)
{
    Nxdnd frame;
    if (!parseNxdnd(nxdnd43, frame))
        return;
    heard();
    if (beginTalk() || frame.source != rxSource) {
        rxSource = frame.source;
        emit talkerStart(rxSource);
    }
    // Header frames are decoded too: their FACCH bits play as a short burst.
    if (!(frame.flags & flags::kData)) {
        for (int slot = 0; slot < kAmbePerBlock; ++slot)
            decode(ambeAt(frame.payload, slot));
    }
    if (frame.flags & flags::kEnd)
        endTalk();
}

} // namespace zl::nxdn
