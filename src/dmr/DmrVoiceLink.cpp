#include "dmr/DmrVoiceLink.h"

#include "dmr/DMRLC.h"
#include "dmr/DmrdFrame.h"

#include <sys/socket.h>

#include <chrono>

namespace zl::dmr {

namespace {

constexpr qint64 kSuperframeMs = 360;

qint64 steadyMs()
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

} // namespace

void DmrVoiceLink::open(int descriptor, const sockaddr_in& master, quint32 peer, quint8 cc)
{
    const std::lock_guard lock(mutex);
    fd = descriptor;
    address = master;
    peerId = peer;
    colorCode = cc;
}

void DmrVoiceLink::close()
{
    const std::lock_guard lock(mutex);
    fd = -1;
    lastVoiceMs = 0;
}

bool DmrVoiceLink::inCall() const
{
    const qint64 last = lastVoiceMs;
    return last != 0 && steadyMs() - last <= kSuperframeMs;
}

bool DmrVoiceLink::sendVoiceHeader(int slot, quint32 srcId, quint32 dstId, quint32 streamId, quint8 seq,
                                   bool privateCall)
{
    lastVoiceMs = steadyMs();
    return sendLc({seq, srcId, dstId, 0, voiceHeaderFlags(slot, privateCall), streamId}, DataType::VoiceLcHeader);
}

bool DmrVoiceLink::sendVoiceBurst(int slot, quint32 srcId, quint32 dstId, quint32 streamId, quint8 seq, int voiceSeq,
                                  const QByteArray& payload33, bool privateCall)
{
    const std::lock_guard lock(mutex);
    lastVoiceMs = steadyMs();
    return sendLocked({seq, srcId, dstId, 0, voiceBurstFlags(slot, privateCall, voiceSeq), streamId}, payload33);
}

bool DmrVoiceLink::sendVoiceTerminator(int slot, quint32 srcId, quint32 dstId, quint32 streamId, quint8 seq,
                                       bool privateCall)
{
    lastVoiceMs = 0;
    return sendLc({seq, srcId, dstId, 0, voiceTerminatorFlags(slot, privateCall), streamId},
                  DataType::TerminatorWithLc);
}

bool DmrVoiceLink::sendLc(const DmrdHeader& header, quint8 dataType)
{
    const std::lock_guard lock(mutex);
    if (fd < 0)
        return false;
    return sendLocked(header, buildLcBurst(header.srcId, header.dstId, colorCode, dataType, header.privateCall()));
}

bool DmrVoiceLink::sendLocked(DmrdHeader header, const QByteArray& burst33)
{
    if (fd < 0)
        return false;
    header.peerId = peerId;
    const QByteArray frame = buildDmrd(header, burst33);
    const ssize_t n = ::sendto(fd, frame.constData(), size_t(frame.size()), 0,
                               reinterpret_cast<const sockaddr*>(&address), sizeof address);
    return n == frame.size();
}

} // namespace zl::dmr
