#pragma once

#include <QByteArray>
#include <QMap>
#include <QString>

#include <functional>

namespace zl::dmr {

// Play-out buffer of one peer's received voice: sorts bursts by their 8-bit sequence number
// (unwrapped), holds them for the jitter delay and then releases one burst per 60 ms, the
// length of a DMR burst. Lost bursts are skipped without shifting the timing of later ones.
class JitterBuffer {
public:
    using Output = std::function<void(const QByteArray& dmrd)>;

    explicit JitterBuffer(Output output);

    // Name used in log lines ("DmrPeerClient <name> jitter: ...").
    void setName(const QString& networkName) { name = networkName; }

    void insert(quint32 streamId, quint8 seq, const QByteArray& frame, bool terminator, qint64 nowMs);
    // One play-out step; lastFrameMs is when the stream's last frame arrived (0 once it ended).
    void tick(qint64 nowMs, qint64 lastFrameMs, int jitterMs);
    // Releases everything held, in sequence order, and resets the play-out position.
    void flush();

    // True while frames wait or play out: the owner's 10 ms tick must run.
    bool needsTicks() const { return ticking; }

private:
    static constexpr int kBurstMs = 60;
    static constexpr int kStaleMs = 1500;

    Output output;
    QString name;
    QMap<int, QByteArray> frames;
    quint32 streamId = 0;
    int nextSeq = -1;
    int highSeq = -1;
    qint64 firstMs = 0;
    qint64 nextPlayMs = 0;
    bool playing = false;
    bool ticking = false;
    int skipped = 0;
};

} // namespace zl::dmr
