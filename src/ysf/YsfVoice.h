#pragma once

#include "hw/AmbeVoicePath.h"

#include <QByteArray>
#include <QList>
#include <QString>

#include <functional>

namespace zl::ysf {

// YSF V/D mode 2 voice: 120-byte payloads to PCM and microphone PCM to payloads, through
// AMBE chips leased from the vocoder pool, one for each direction. Transmit is paced by the
// chip: a frame goes out whenever five AMBE frames are done.
class YsfVoice : public zl::hw::AmbeVoicePath {
    Q_OBJECT

public:
    // pool null: the program's pool.
    explicit YsfVoice(zl::hw::Dv3000Pool* pool = nullptr, QObject* parent = nullptr);

    void setIdentity(const QString& gateway, const QString& source, const QString& destination, int dgId);
    void setRxDgIdFilter(quint8 dgId) { rxDgIdFilter = dgId; }
    void startTx();
    void stopTx();

    // Tests step the clock.
    void setClockForTests(std::function<qint64()> now) { clock = std::move(now); }

public slots:
    void onNetworkFrame(const QByteArray& ysfd155);

signals:
    void talkerStart(const QString& source);
    void frameReady(const QByteArray& ysfd155);

protected slots:
    void onTxAmbe(const QByteArray& frame) override;

private:
    void sendPayload(int fi, const QList<QByteArray>& ambeBlock = {});

    QString rxSource;
    quint8 rxDgIdFilter = 0;
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
