#pragma once

#include <netinet/in.h>

#include <QByteArray>

#include <atomic>
#include <mutex>

namespace zl::dmr {

struct DmrdHeader;

// The send side of one peer's voice, shared by its client (main thread) and the encoder of a
// transmission (vocoder worker thread). The client opens it on entering Running and closes it
// on leaving; the encoder holds it for as long as it lives, so a peer deleted mid-transmission
// leaves a closed link behind, never a dangling client. Frames go straight to the kernel with
// sendto; the lock keeps a closing client from freeing the descriptor under a send.
class DmrVoiceLink {
public:
    void open(int descriptor, const sockaddr_in& master, quint32 peerId, quint8 colorCode);
    void close();

    // Each builds one DMRD frame and sends it; false while the link is closed. slot is 1 or
    // 2; seq counts the frames of the stream, voiceSeq the bursts A (0) to F (5) of a superframe.
    bool sendVoiceHeader(int slot, quint32 srcId, quint32 dstId, quint32 streamId, quint8 seq, bool privateCall);
    bool sendVoiceBurst(int slot, quint32 srcId, quint32 dstId, quint32 streamId, quint8 seq, int voiceSeq,
                        const QByteArray& payload33, bool privateCall);
    bool sendVoiceTerminator(int slot, quint32 srcId, quint32 dstId, quint32 streamId, quint8 seq, bool privateCall);

    // True while a transmission is on the air: from its header until its terminator, or until
    // bursts have stopped for longer than a superframe when an encoder ended without one.
    // Data calls wait for it, as a master takes one call per slot at a time.
    bool inCall() const;

private:
    bool sendLc(const DmrdHeader& header, quint8 dataType);
    // With the lock held.
    bool sendLocked(DmrdHeader header, const QByteArray& burst33);

    // Steady-clock milliseconds of the last header or burst sent; 0 after a terminator.
    std::atomic<qint64> lastVoiceMs{0};
    std::mutex mutex; // visible to the thread sanitizer, unlike QtCore's
    int fd = -1;
    sockaddr_in address{};
    quint32 peerId = 0;
    quint8 colorCode = 1;
};

} // namespace zl::dmr
