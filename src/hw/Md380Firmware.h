#pragma once

#include <QString>
#include <QStringList>

namespace zl::hw {

// Where md380fw.img and md380ram.img are looked for, in order: hardware.md380_fw_dir when
// set, then the folders installed beside the program.
QStringList md380FirmwareFolders();

// Why the two images in a folder cannot run in the emulator (missing, empty or too large),
// or empty when both can.
QString md380FirmwareProblem(const QString& folder);

} // namespace zl::hw
