#pragma once

#include "hw/AmbeVoicePath.h"

#include <QByteArray>

namespace zl::nxdn {

// NXDN voice: 33-byte payloads of four AMBE frames to PCM and microphone PCM to payloads,
// through AMBE chips leased from the vocoder pool. A voice frame goes out whenever the
// transmit chip has made four AMBE frames; the header goes just before the first of them.
class NxdnVoice : public zl::hw::AmbeVoicePath {
    Q_OBJECT

public:
    // pool null: the program's pool.
    explicit NxdnVoice(zl::hw::Dv3000Pool* pool = nullptr, QObject* parent = nullptr);

    void setIdentity(quint16 sourceId, quint16 tg, int ran);
    void startTx();
    void stopTx();

public slots:
    void onNetworkFrame(const QByteArray& nxdnd43);

signals:
    void talkerStart(ushort src);
    void frameReady(const QByteArray& nxdnd43);

protected slots:
    void onTxAmbe(const QByteArray& frame) override;

private:
    void flush();

    quint16 rxSource = 0;
    quint16 sourceId = 0;
    quint16 tg = 0;
    int ran = 0;
    QByteArray txBlock;
    int ambeCount = 0;
    unsigned voiceCounter = 0;
    bool headerPending = false;
};

} // namespace zl::nxdn
