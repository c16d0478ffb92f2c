#pragma once

#include <QByteArray>
#include <QString>

namespace zl::hw {

class Dv3000;
class Dv3000Pool;

// One chip lent by the pool to one direction of a voice mode. Calls reach the chip on the
// worker thread as queued invocations; its signals come back queued.
class VocoderLease {
public:
    explicit VocoderLease(Dv3000Pool* pool);
    ~VocoderLease();
    VocoderLease(const VocoderLease&) = delete;
    VocoderLease& operator=(const VocoderLease&) = delete;

    // Leases a chip at rate 33 unless one is held, and logs "<what> acquired" or
    // "<what> (none — no AMBE stick)". True when a chip is newly held.
    bool acquire(const QString& what);
    // When the held chip has failed, its lease moves to the next free chip. True when a new
    // chip is held, whose signals the user connects as after acquire.
    bool moveIfFailed(const QString& what);
    void release();
    Dv3000* chip() const { return held; }

    // Microphone PCM of any length: each whole 20 ms frame goes to the chip as speech, the
    // rest waits for the next call.
    void pushSpeech(const QByteArray& pcm);
    void dropSpeech() { pcmBuffer.clear(); }
    // A 72-bit frame to decode.
    void postChannel(const QByteArray& frame9);

private:
    Dv3000Pool* pool;
    Dv3000* held = nullptr;
    QByteArray pcmBuffer;
};

} // namespace zl::hw
