#include "hw/AmbeVoicePath.h"

#include "hw/Dv3000.h"

#include <QTimer>

namespace zl::hw {

AmbeVoicePath::AmbeVoicePath(const QString& name, Dv3000Pool* pool, QObject* parent)
    : QObject(parent), name(name), rxChip(pool), txChip(pool), rxIdleTimer(new QTimer(this))
{
    rxIdleTimer->setSingleShot(true);
    rxIdleTimer->setInterval(1500);
    connect(rxIdleTimer, &QTimer::timeout, this, &AmbeVoicePath::onRxIdle);
}

AmbeVoicePath::~AmbeVoicePath() = default;

void AmbeVoicePath::setRxIdleInterval(int ms)
{
    rxIdleTimer->setInterval(ms);
}

void AmbeVoicePath::leaseTxChip(bool fresh)
{
    if (fresh)
        connect(txChip.chip(), &Dv3000::ambeFrameReady, this, &AmbeVoicePath::onTxAmbe);
}

void AmbeVoicePath::beginTx()
{
    txActive = true;
    txChip.dropSpeech();
    leaseTxChip(txChip.acquire(QStringLiteral("%1: TX chip").arg(name)));
}

void AmbeVoicePath::pushMicPcm(const QByteArray& pcm)
{
    if (!txActive)
        return;
    leaseTxChip(txChip.moveIfFailed(QStringLiteral("%1: TX chip").arg(name)));
    txChip.pushSpeech(pcm);
}

void AmbeVoicePath::endTx()
{
    if (txChip.chip())
        disconnect(txChip.chip(), nullptr, this, nullptr);
    txChip.release();
    txActive = false;
}

void AmbeVoicePath::decode(const QByteArray& frame9)
{
    const QString what = QStringLiteral("%1: RX chip").arg(name);
    if (rxChip.acquire(what) || rxChip.moveIfFailed(what))
        connect(rxChip.chip(), &Dv3000::pcmFrameReady, this, &AmbeVoicePath::pcmReady);
    rxChip.postChannel(frame9);
}

void AmbeVoicePath::heard()
{
    rxIdleTimer->start();
}

bool AmbeVoicePath::beginTalk()
{
    const bool fresh = !rxTalking;
    rxTalking = true;
    return fresh;
}

void AmbeVoicePath::endTalk()
{
    if (rxTalking) {
        rxTalking = false;
        emit talkerStop();
    }
}

void AmbeVoicePath::onRxIdle()
{
    endTalk();
    if (rxChip.chip())
        disconnect(rxChip.chip(), nullptr, this, nullptr);
    rxChip.release();
}

} // namespace zl::hw
