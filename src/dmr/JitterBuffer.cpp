#include "JitterBuffer.h"

#include <QDebug>

namespace zl::dmr {

JitterBuffer::JitterBuffer(Output out) : output(std::move(out))
{
}

void JitterBuffer::insert(quint32 id, quint8 seq, const QByteArray& frame, bool terminator, qint64 nowMs)
{
    int key = seq;
    if (id != streamId) {
        flush();
        streamId = id;
        nextSeq = -1;
        firstMs = nowMs;
        playing = false;
        skipped = 0;
        highSeq = seq;
    } else if (highSeq < 0) {
        highSeq = seq;
    } else {
        // Unwrap against the highest sequence seen: a jump of more than half the range is a wrap.
        const int d = int(seq) - (highSeq & 255);
        if (d < -128) {
            key = highSeq + d + 256;
            highSeq = key;
        } else if (d > 127) {
            key = highSeq + d - 256;
        } else {
            key = highSeq + d;
            if (key > highSeq)
                highSeq = key;
        }
    }

    if (nextSeq >= 0 && key < nextSeq) {
        qInfo().noquote() << "DmrPeerClient" << name << "jitter: frame seq" << seq << "arrived too late, dropped";
        return;
    }
    frames.insert(key, frame);
    if (terminator)
        flush();
    else
        ticking = true;
}

void JitterBuffer::tick(qint64 nowMs, qint64 lastFrameMs, int jitterMs)
{
    if (frames.isEmpty()) {
        if (nowMs - lastFrameMs > kStaleMs)
            flush();
        return;
    }
    if (!playing) {
        if (nowMs - firstMs < jitterMs)
            return;
        playing = true;
        nextPlayMs = nowMs;
        nextSeq = frames.firstKey();
    }
    if (nextPlayMs > nowMs)
        return;

    const auto it = frames.constFind(nextSeq);
    if (it != frames.cend()) {
        const QByteArray frame = it.value();
        frames.erase(it);
        ++nextSeq;
        nextPlayMs += kBurstMs;
        output(frame);
    } else if (frames.firstKey() > nextSeq) {
        ++skipped;
        ++nextSeq;
        nextPlayMs += kBurstMs;
    }
}

void JitterBuffer::flush()
{
    const QMap<int, QByteArray> held = frames;
    frames.clear();
    for (const QByteArray& frame : held)
        output(frame);
    if (skipped > 0) {
        qInfo().noquote() << "DmrPeerClient" << name << "jitter: stream" << QString::number(streamId, 16)
                          << "done, skipped (lost) bursts:" << skipped;
    }
    nextSeq = -1;
    playing = false;
    skipped = 0;
    ticking = false;
}

} // namespace zl::dmr
