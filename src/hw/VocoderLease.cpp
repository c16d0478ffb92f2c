#include "VocoderLease.h"

#include "Dv3000.h"
#include "Dv3000Pool.h"
#include "app/ThreadHandOff.h"

#include <QDebug>

namespace zl::hw {

namespace {
constexpr int kAmbeRate = 33;
constexpr qsizetype kPcmFrameBytes = 320;
} // namespace

VocoderLease::VocoderLease(Dv3000Pool* vocoders) : pool(vocoders ? vocoders : Dv3000Pool::instance())
{
}

VocoderLease::~VocoderLease()
{
    release();
}

bool VocoderLease::acquire(const QString& what)
{
    if (held)
        return false;
    held = pool->acquire(kAmbeRate);
    qInfo().noquote() << what << (held ? "acquired" : "(none — no AMBE stick)");
    return held != nullptr;
}

bool VocoderLease::moveIfFailed(const QString& what)
{
    Dv3000* next = held ? pool->replaceIfBroken(held, kAmbeRate) : nullptr;
    if (next == held)
        return false;
    held = next;
    pcmBuffer.clear();
    qInfo().noquote() << what << (held ? "moved to another chip" : "lost its chip (no other AMBE chip)");
    return held != nullptr;
}

void VocoderLease::release()
{
    pcmBuffer.clear();
    if (!held)
        return;
    pool->release(held);
    held = nullptr;
}

void VocoderLease::pushSpeech(const QByteArray& pcm)
{
    if (!held)
        return;
    pcmBuffer.append(pcm);
    while (pcmBuffer.size() >= kPcmFrameBytes) {
        const QByteArray frame = pcmBuffer.first(kPcmFrameBytes);
        pcmBuffer.remove(0, kPcmFrameBytes);
        Dv3000* chip = held;
        zl::postTo(chip, [chip, frame] { chip->postSpeech(frame); });
    }
}

void VocoderLease::postChannel(const QByteArray& frame9)
{
    if (!held)
        return;
    Dv3000* chip = held;
    zl::postTo(chip, [chip, frame9] { chip->postChannel(frame9, 72); });
}

} // namespace zl::hw
