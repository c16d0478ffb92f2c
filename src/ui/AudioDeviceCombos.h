#pragma once

#include <QString>

class QComboBox;

// The device lists of the main window and the sound test: a first entry with empty data, the
// devices by description, and for speakers the sound card profiles one could switch to, as
// entries whose data is "switch:<card>|<profile>".
namespace zl::ui {

void fillMicCombo(QComboBox* combo, const QString& firstText);
void fillSpkCombo(QComboBox* combo, const QString& firstText);

// Card and profile of a "switch:" entry's data; false for a device or a malformed entry.
bool switchEntry(const QString& data, QString* card, QString* profile);

// Switches the card and, when the sound server took it, remembers the profile as the one to
// restore at the next start.
bool switchCardProfile(const QString& card, const QString& profile);

// After a profile switch: the last device entry (the sound server adds the new outputs at the
// end), or the first entry when there is none.
void pickLastDevice(QComboBox* combo);

} // namespace zl::ui
