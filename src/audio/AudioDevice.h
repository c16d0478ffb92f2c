#pragma once

#include <QString>

namespace zl {

// Thin layer over the sound server for device lists and sound-card profiles.
class AudioDevice {
public:
    // Switches a card back to the profile the user chose, with `pactl set-card-profile`.
    // True when pactl ran and exited with code 0; false at once if either is empty.
    static bool restoreCardProfile(const QString& card, const QString& profile);
};

} // namespace zl
