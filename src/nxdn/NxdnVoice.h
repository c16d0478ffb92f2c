#pragma once

#include "hw/VocoderLease.h"

#include <QByteArray>
#include <QObject>

class QTimer;

namespace zl::nxdn {

// NXDN voice: 33-byte payloads of four AMBE frames to PCM and microphone PCM to payloads,
// through AMBE chips leased from the vocoder pool. A voice frame goes out whenever the
// transmit chip has made four AMBE frames; the header goes just before the first of them.
class NxdnVoice : public QObject {
    Q_OBJECT

public:
    // pool null: the program's pool.
    explicit NxdnVoice(zl::hw::Dv3000Pool* pool = nullptr, QObject* parent = nullptr);
    ~NxdnVoice() override;

    void setIdentity(quint16 sourceId, quint16 tg, int ran);
    void startTx();
    void stopTx();
    // Tests shorten the receive idle time.
    void setRxIdleInterval(int ms);

public slots:
    void pushMicPcm(const QByteArray& pcm);
    void onNetworkFrame(const QByteArray& nxdnd43);

signals:
    void pcmReady(const QByteArray& pcm);
    void talkerStart(ushort src);
    void talkerStop();
    void frameReady(const QByteArray& nxdnd43);

private slots:
    void onTxAmbe(const QByteArray& frame);
    void onRxIdle();

private:
    void flush();
    void releaseTxChip();

    zl::hw::VocoderLease rxChip;
    QTimer* rxIdleTimer;
    bool rxTalking = false;
    quint16 rxSource = 0;
    zl::hw::VocoderLease txChip;
    bool txActive = false;
    quint16 sourceId = 0;
    quint16 tg = 0;
    int ran = 0;
    QByteArray txBlock;
    int ambeCount = 0;
    unsigned voiceCounter = 0;
    bool headerPending = false;
};

} // namespace zl::nxdn
