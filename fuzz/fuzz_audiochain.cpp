// A chain object of a hand-edited config.json, then samples: the chain takes any settings and
// any block without crashing or leaving the 16-bit range. The first line is the JSON, the
// rest the samples. Plug-ins are left out: their labels would only be searched for.
#include "audio/AudioChain.h"

#include <QJsonDocument>
#include <QVarLengthArray>

#include <cstdint>
#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray input(reinterpret_cast<const char*>(data), qsizetype(size));
    const qsizetype split = input.indexOf('\n');
    if (split < 0)
        return 0;
    zl::audio::AudioChainConfig config = zl::audio::parseChain(QJsonDocument::fromJson(input.left(split)).object());
    config.ladspa.clear();
    zl::audio::AudioChain chain;
    chain.configure(config);
    const QByteArray pcm = input.mid(split + 1);
    QVarLengthArray<qint16, 4096> samples(pcm.size() / 2);
    std::memcpy(samples.data(), pcm.constData(), size_t(samples.size()) * 2);
    // Twice, so that the state left by the first block is run on.
    chain.process(samples.data(), int(samples.size()));
    chain.process(samples.data(), int(samples.size()));
    return 0;
}
