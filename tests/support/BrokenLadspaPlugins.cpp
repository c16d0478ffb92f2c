// LADSPA plug-ins that misbehave as third-party ones might: one crashes when instantiated,
// one when run, one refuses an instance, one has no audio output. The host must survive all.
#include <ladspa.h>

#include <csignal>

namespace {

LADSPA_Handle crashingInstantiate(const LADSPA_Descriptor*, unsigned long)
{
    std::raise(SIGSEGV);
    return nullptr;
}

LADSPA_Handle refusingInstantiate(const LADSPA_Descriptor*, unsigned long)
{
    return nullptr;
}

int token;

LADSPA_Handle instantiate(const LADSPA_Descriptor*, unsigned long)
{
    return &token;
}

void connectPort(LADSPA_Handle, unsigned long, LADSPA_Data*)
{
}

void run(LADSPA_Handle, unsigned long)
{
}

void crashingRun(LADSPA_Handle, unsigned long)
{
    std::raise(SIGSEGV);
}

void cleanup(LADSPA_Handle)
{
}

const LADSPA_PortDescriptor kMonoPorts[] = {LADSPA_PORT_INPUT | LADSPA_PORT_AUDIO,
                                            LADSPA_PORT_OUTPUT | LADSPA_PORT_AUDIO};
const LADSPA_PortDescriptor kInputOnly[] = {LADSPA_PORT_INPUT | LADSPA_PORT_AUDIO};
const char* const kNames[] = {"In", "Out"};
const LADSPA_PortRangeHint kHints[] = {{0, 0, 0}, {0, 0, 0}};

LADSPA_Descriptor make(unsigned long id, const char* label, const LADSPA_PortDescriptor* ports, unsigned long count,
                       LADSPA_Handle (*inst)(const LADSPA_Descriptor*, unsigned long),
                       void (*runner)(LADSPA_Handle, unsigned long))
{
    LADSPA_Descriptor d{};
    d.UniqueID = id;
    d.Label = label;
    d.Name = label;
    d.PortCount = count;
    d.PortDescriptors = ports;
    d.PortNames = kNames;
    d.PortRangeHints = kHints;
    d.instantiate = inst;
    d.connect_port = connectPort;
    d.run = runner;
    d.cleanup = cleanup;
    return d;
}

const LADSPA_Descriptor kPlugins[] = {
    make(9001, "zl_crash_instantiate", kMonoPorts, 2, crashingInstantiate, run),
    make(9002, "zl_crash_run", kMonoPorts, 2, instantiate, crashingRun),
    make(9003, "zl_null_instance", kMonoPorts, 2, refusingInstantiate, run),
    make(9004, "zl_no_output", kInputOnly, 1, instantiate, run),
};

} // namespace

extern "C" __attribute__((visibility("default"))) const LADSPA_Descriptor* ladspa_descriptor(unsigned long index)
{
    return index < sizeof(kPlugins) / sizeof(kPlugins[0]) ? &kPlugins[index] : nullptr;
}
