#pragma once

#include <QByteArray>
#include <QList>
#include <QObject>

#include <memory>

class QTimer;

namespace zl::hw {
class Dv3000;
}

namespace zl::dmr {

class DmrPeerClient;
class DmrVoiceLink;

// One transmission: microphone PCM to DMRD frames sent through one peer client. Lives on the
// vocoder pool's worker thread. Three clocks meet here, the microphone's, the chip's and the
// 60 ms burst rate of DMR; two precise timers of its own keep them apart: speech goes to the chip
// every 20 ms as it arrives, and a burst leaves every 60 ms after a 240 ms head start.
class DmrVoiceEncoder : public QObject {
    Q_OBJECT

public:
    explicit DmrVoiceEncoder(DmrPeerClient* client, QObject* parent = nullptr);
    ~DmrVoiceEncoder() override;

    // Worker thread only.
    bool isActive() const { return active; }
    int queuedBursts() const { return int(bursts.size()); }

    // Test seam: shorter speech pace, burst interval and head start.
    void setIntervalsForTests(int paceMs, int burstMs, int headStartMs);

public slots:
    void startStream(quint8 slot, quint32 srcId, quint32 dstId, bool privateCall);
    void stopStream();
    // 8 kHz 16-bit mono, any length.
    void feedPcm(const QByteArray& pcm);

private slots:
    void onChipAmbeFrame(const QByteArray& ambe9);
    void paceTick();
    void burstSendTick();

private:
    struct Burst {
        QByteArray payload;
        quint8 voiceSeq = 0;
    };

    void buildBurst();

    // The peer's voice path, not the peer: the peer may go while we still send.
    std::shared_ptr<DmrVoiceLink> link;
    zl::hw::Dv3000* chip = nullptr;
    QTimer* paceTimer;
    QTimer* burstTimer;
    QTimer* headStartTimer;
    QList<Burst> bursts;
    bool active = false;
    quint8 slot = 1;
    quint32 srcId = 0;
    quint32 dstId = 0;
    bool privateCall = false;
    quint32 streamId = 0;
    quint8 voiceSeq = 0;
    quint8 frameSeq = 0;
    QByteArray ambe;
    QByteArray pcm;
    quint8 oddByte = 0;
    bool hasOddByte = false;
    qint64 startMs = 0;
    qint64 samplesIn = 0;
    int paceSent = 0;
    int paceSkip = 0;
    int burstSent = 0;
    int burstEmpty = 0;
};

} // namespace zl::dmr
