#pragma once

#include <QString>

namespace zl {

// The first existing copy of a shipped file: the installed share folder, then the
// assets folder beside or above the binary (build trees). Empty if none exists.
QString assetPath(const QString& fileName);

} // namespace zl
