#include "LadspaInstance.h"

#include "LadspaHost.h"

#include <dlfcn.h>

namespace zl::audio {

namespace {

// LADSPA audio runs from -1 to 1; the chain works in 16-bit sample units.
constexpr float kToPlugin = 1.0f / 32768.0f;
constexpr float kFromPlugin = 32768.0f;

} // namespace

LadspaInstance::LadspaInstance(void* handle, const LADSPA_Descriptor* descriptor, LADSPA_Handle instance)
    : handle(handle), descriptor(descriptor), instance(instance), controls(descriptor->PortCount, 0.0f),
      inBuffer(kMaxBlock, 0.0f), outBuffer(kMaxBlock, 0.0f)
{
}

LadspaInstance::~LadspaInstance()
{
    if (active && descriptor->deactivate)
        descriptor->deactivate(instance);
    if (descriptor->cleanup)
        descriptor->cleanup(instance);
    dlclose(handle);
}

bool LadspaInstance::connect(const QList<float>& controlValues)
{
    int control = 0;
    for (unsigned long port = 0; port < descriptor->PortCount; ++port) {
        const LADSPA_PortDescriptor kind = descriptor->PortDescriptors[port];
        if (LADSPA_IS_PORT_CONTROL(kind)) {
            if (LADSPA_IS_PORT_INPUT(kind)) {
                const LadspaControl record = LadspaHost::controlOf(descriptor, port);
                controls[port] = control < controlValues.size() ? controlValues.at(control) : record.defaultValue;
                ++control;
            }
            descriptor->connect_port(instance, port, &controls[port]);
        } else if (LADSPA_IS_PORT_AUDIO(kind) && LADSPA_IS_PORT_INPUT(kind)) {
            descriptor->connect_port(instance, port, inBuffer.data());
            if (inPort < 0)
                inPort = int(port);
        } else if (LADSPA_IS_PORT_AUDIO(kind) && LADSPA_IS_PORT_OUTPUT(kind)) {
            descriptor->connect_port(instance, port, outBuffer.data());
            if (outPort < 0)
                outPort = int(port);
        }
    }
    if (inPort < 0 || outPort < 0)
        return false;
    if (descriptor->activate)
        descriptor->activate(instance);
    active = true;
    return true;
}

void LadspaInstance::run(float* samples, int count)
{
    count = qMin(count, kMaxBlock);
    for (int i = 0; i < count; ++i)
        inBuffer[size_t(i)] = samples[i] * kToPlugin;
    descriptor->run(instance, static_cast<unsigned long>(count));
    for (int i = 0; i < count; ++i)
        samples[i] = outBuffer[size_t(i)] * kFromPlugin;
}

} // namespace zl::audio
