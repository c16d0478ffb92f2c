#pragma once

#include <ladspa.h>

#include <QList>
#include <QString>
#include <QStringList>

#include <memory>

namespace zl::audio {

class LadspaInstance;

// A control input port as the chain editor shows it, with bounds and default resolved.
struct LadspaControl {
    QString name;
    float lower = 0.0f;
    float upper = 1.0f;
    float defaultValue = 0.0f;
    bool integer = false;
    bool toggled = false;
};

// An installed plug-in.
struct LadspaPluginInfo {
    QString label;
    QString name;
    QList<LadspaControl> controls;
    int audioIns = 0;
    int audioOuts = 0;
};

// Finds LADSPA plug-ins and starts them for the audio chains. Plug-ins run at 8 kHz, mono.
class LadspaHost {
public:
    // LADSPA_PATH's folders in order, then the two standard ones.
    static QStringList searchPath();
    // Every plug-in found, the first folder winning for a label, sorted by name. The libraries
    // are opened in a child process; one that crashes while loading is left out.
    static QList<LadspaPluginInfo> scanPlugins();
    // The plug-in with this label, running with these control values (in control port order;
    // missing ones take their defaults), or null when it is not there, cannot run mono, or
    // fails a trial run in a child process: a plug-in that crashes takes only the child down.
    static std::unique_ptr<LadspaInstance> createInstance(const QString& label, const QList<float>& ctl);
    // The record of one control input port.
    static LadspaControl controlOf(const LADSPA_Descriptor* descriptor, unsigned long port);
};

} // namespace zl::audio
