#pragma once

#include <ladspa.h>

#include <QList>

#include <vector>

namespace zl::audio {

// A running LADSPA plug-in inside a chain, used mono: its first audio input takes the block
// and its first audio output gives it back; further audio ports share those two buffers.
// Made by LadspaHost::createInstance; the destructor deactivates, cleans up and unloads it.
class LadspaInstance {
public:
    static constexpr int kMaxBlock = 2048;

    LadspaInstance(void* handle, const LADSPA_Descriptor* descriptor, LADSPA_Handle instance);
    ~LadspaInstance();
    LadspaInstance(const LadspaInstance&) = delete;
    LadspaInstance& operator=(const LadspaInstance&) = delete;

    // Connects every port, with the control inputs at their values (in control port order),
    // and activates. False when there is no audio input or no audio output to run through.
    bool connect(const QList<float>& controlValues);

    // Runs the plug-in over count samples (at most kMaxBlock) in 16-bit sample units.
    void run(float* samples, int count);

private:
    void* handle;
    const LADSPA_Descriptor* descriptor;
    LADSPA_Handle instance;
    int inPort = -1;
    int outPort = -1;
    bool active = false;
    // One value per port: control inputs hold their setting, control outputs are scratch.
    std::vector<LADSPA_Data> controls;
    std::vector<LADSPA_Data> inBuffer;
    std::vector<LADSPA_Data> outBuffer;
};

} // namespace zl::audio
