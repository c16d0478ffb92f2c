#pragma once

#include <QByteArray>
#include <QList>
#include <QObject>

class QTimer;

namespace zl::hw {
class Dv3000;
}

namespace zl::dmr {

// Turns the voice frames of one peer, in play-out order, into 8 kHz PCM. Lives on the vocoder
// pool's worker thread: a chip is leased for the life of a stream, each burst goes to it as three
// 9-byte AMBE frames, and every 20 ms frame the chip returns leaves as pcmReady.
class DmrVoiceDecoder : public QObject {
    Q_OBJECT

public:
    explicit DmrVoiceDecoder(QObject* parent = nullptr);
    ~DmrVoiceDecoder() override;

    // Worker thread only.
    quint32 currentStreamId() const { return streamId; }
    bool hasChip() const { return chip != nullptr; }

public slots:
    void onDmrFrame(const QByteArray& dmrd);
    void endStream();

signals:
    void pcmReady(const QByteArray& pcm);

private slots:
    void onIdleCheck();
    void onChipPcmFrame(const QByteArray& pcm);
    void finishDrain();

private:
    void startStream(quint32 id);
    void replayHeldFrames();
    void releaseChip();

    quint32 streamId = 0;
    qint64 lastFrameMs = 0;
    quint32 burstCount = 0;
    zl::hw::Dv3000* chip = nullptr;
    QTimer* idleTimer;
    QTimer* drainTimer;
    // Frames that arrive while endStream waits for the chip are played after it, in order.
    bool draining = false;
    QList<QByteArray> heldFrames;
};

} // namespace zl::dmr
