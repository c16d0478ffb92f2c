// LADSPA plug-ins that crash as third-party ones might: one when instantiated, one when run;
// built a second time as a library that crashes as soon as it is loaded. The host must
// survive all three.
#include <ladspa.h>

#include <csignal>

namespace {

#ifdef ZL_CRASH_ON_LOAD
__attribute__((constructor)) void crashOnLoad()
{
    std::raise(SIGSEGV);
}
#endif

LADSPA_Handle crashingInstantiate(const LADSPA_Descriptor*, unsigned long)
{
    std::raise(SIGSEGV);
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
const char* const kNames[] = {"In", "Out"};

LADSPA_Descriptor make(unsigned long id, const char* label,
                       LADSPA_Handle (*inst)(const LADSPA_Descriptor*, unsigned long),
                       void (*runner)(LADSPA_Handle, unsigned long))
{
    LADSPA_Descriptor d{};
    d.UniqueID = id;
    d.Label = label;
    d.Name = label;
    d.PortCount = 2;
    d.PortDescriptors = kMonoPorts;
    d.PortNames = kNames;
    d.instantiate = inst;
    d.connect_port = connectPort;
    d.run = runner;
    d.cleanup = cleanup;
    return d;
}

const LADSPA_Descriptor kPlugins[] = {
    make(9001, "zl_crash_instantiate", crashingInstantiate, run),
    make(9002, "zl_crash_run", instantiate, crashingRun),
};

} // namespace

extern "C" __attribute__((visibility("default"))) const LADSPA_Descriptor* ladspa_descriptor(unsigned long index)
{
    return index < sizeof(kPlugins) / sizeof(kPlugins[0]) ? &kPlugins[index] : nullptr;
}
