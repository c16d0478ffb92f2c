#pragma once

#include "hw/VocoderLease.h"

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QString>

#include <functional>

class QTimer;

namespace zl::ysf {

// YSF V/D mode 2 voice: 120-byte payloads to PCM and microphone PCM to payloads, through
// AMBE chips leased from the vocoder pool, one for each direction. Transmit is paced by the
// chip: a frame goes out whenever five AMBE frames are done.
class YsfVoice : public QObject {
    Q_OBJECT

public:
    // pool null: the program's pool.
    explicit YsfVoice(zl::hw::Dv3000Pool* pool = nullptr, QObject* parent = nullptr);
    ~YsfVoice() override;

    void setIdentity(const QString& gateway, const QString& source, const QString& destination, int dgId);
    void setRxDgIdFilter(quint8 dgId) { rxDgIdFilter = dgId; }
    void startTx();
    void stopTx();

    // Tests step the clock and shorten the receive idle time.
    void setClockForTests(std::function<qint64()> now) { clock = std::move(now); }
    void setRxIdleInterval(int ms);

public slots:
    void pushMicPcm(const QByteArray& pcm);
    void onNetworkFrame(const QByteArray& ysfd155);

signals:
    void pcmReady(const QByteArray& pcm);
    void talkerStart(const QString& source);
    void talkerStop();
    void frameReady(const QByteArray& ysfd155);

private slots:
    void onTxAmbe(const QByteArray& frame);
    void onRxIdle();

private:
    void sendPayload(int fi, const QList<QByteArray>& ambeBlock = {});

    zl::hw::VocoderLease rxChip;
    QTimer* rxIdleTimer;
    QString rxSource;
    bool rxTalking = false;
    quint8 rxDgIdFilter = 0;
    zl::hw::VocoderLease txChip;
    bool txActive = false;
    QString gateway;
    QString source;
    QString destination = QStringLiteral("ALL");
    int dgId = 0;
    quint8 frameCounter = 0;
    quint8 frameNumber = 0;
    QList<QByteArray> ambeBlock;
    qint64 rxHoldoffUntil = 0;
    std::function<qint64()> clock;
};

} // namespace zl::ysf
