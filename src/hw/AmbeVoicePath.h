#pragma once

#include "hw/VocoderLease.h"

#include <QByteArray>
#include <QObject>
#include <QString>

class QTimer;

namespace zl::hw {

// What the voice paths over AMBE chips share: one chip leased from the vocoder pool for each
// direction, held only while needed and moved to another chip when it fails; and the end of a
// received talk when the network has been quiet for the idle time.
class AmbeVoicePath : public QObject {
    Q_OBJECT

public:
    ~AmbeVoicePath() override;

    // Tests shorten the receive idle time.
    void setRxIdleInterval(int ms);

public slots:
    void pushMicPcm(const QByteArray& pcm);

signals:
    void pcmReady(const QByteArray& pcm);
    void talkerStop();

protected slots:
    // An AMBE frame made by the transmit chip.
    virtual void onTxAmbe(const QByteArray& frame) = 0;

protected:
    // name prefixes the chip log lines ("YsfVoice: TX chip acquired"); pool null: the program's.
    AmbeVoicePath(const QString& name, Dv3000Pool* pool, QObject* parent);

    // Leases the transmit chip; its AMBE frames reach onTxAmbe until endTx.
    void beginTx();
    void endTx();
    bool isTransmitting() const { return txActive; }

    // A received 72-bit AMBE frame, to speech; the receive chip is leased on the first.
    void decode(const QByteArray& frame9);
    // A frame from the network: the talk lasts until the idle time passes without one.
    void heard();
    // Marks a talk as going on; true when it has just begun.
    bool beginTalk();
    // Ends the talk, if one goes on.
    void endTalk();

private:
    void onRxIdle();
    void leaseTxChip(bool fresh);

    QString name;
    VocoderLease rxChip;
    VocoderLease txChip;
    QTimer* rxIdleTimer;
    bool txActive = false;
    bool rxTalking = false;
};

} // namespace zl::hw
