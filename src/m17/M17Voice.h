#pragma once

#include <QByteArray>
#include <QObject>
#include <QString>

struct CODEC2;

namespace zl::m17 {

// Codec2 3200 speech for M17: microphone PCM (8 kHz, 16-bit mono) to 40 ms stream frames of
// two Codec2 frames each, and received stream frames back to PCM. Pacing comes from the
// microphone: a frame goes out whenever 40 ms of speech have arrived.
class M17Voice : public QObject {
    Q_OBJECT

public:
    explicit M17Voice(QObject* parent = nullptr);
    ~M17Voice() override;

    void startTx(const QString& callsign);
    void stopTx();
    bool isTxActive() const { return txActive; }
    quint16 txStreamId() const { return streamId; }

public slots:
    void pushMicPcm(const QByteArray& pcm);
    void onVoiceFrame(const QByteArray& frame);

signals:
    // A stream frame to send to the reflector.
    void frameReady(const QByteArray& frame);
    // 20 ms of decoded speech, in order, as received.
    void rxPcm(const QByteArray& pcm);
    // A new stream id started on receive.
    void talkerStarted(const QString& source, quint16 streamId);

private:
    QByteArray encodeFrame(const QByteArray& pcm40ms, bool endOfStream);

    CODEC2* encoder;
    CODEC2* decoder;
    QString callsign;
    bool txActive = false;
    quint16 streamId = 0;
    quint16 frameNumber = 0;
    int framesSent = 0;
    QByteArray txBuffer;
    bool rxActive = false;
    quint16 rxStreamId = 0;
    quint16 endedStreamId = 0;
    bool endedStreamValid = false;
};

} // namespace zl::m17
