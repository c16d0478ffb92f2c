#pragma once

#include <QList>
#include <QString>
#include <QStringList>

namespace zl {

// An output profile a sound card could be switched to, such as HDMI instead of analogue.
struct CardProfile {
    QString card;
    QString profile;
    QString description;
};

// Thin layer over the sound server for device lists and sound-card profiles. A desktop card
// often offers one output at a time; its other outputs are offered as profiles to switch to.
class AudioDevice {
public:
    virtual ~AudioDevice() = default;

    // The sound server's helper (PulseAudio and PipeWire, through pactl).
    static AudioDevice& instance();

    // Device descriptions, as the mixer asks for them.
    virtual QStringList listInputs() const = 0;
    virtual QStringList listOutputs() const = 0;
    // Output profiles of the ALSA cards that are available and not in use now.
    virtual QList<CardProfile> listCardProfiles() const = 0;
    // Switches a card's profile; true when the sound server took it. False at once if either is empty.
    virtual bool setCardProfile(const QString& card, const QString& profile) const = 0;

    // The profiles to offer, read from the text of `pactl list cards`.
    static QList<CardProfile> parseCardProfiles(const QString& cardList);
};

} // namespace zl
