#pragma once

#include <QByteArray>
#include <QString>

namespace zl {

enum class FileAccess { Private, Shared };

// Writes the whole file through a temporary file in the same folder, flushed and renamed
// over the old one, so that a crash or a full disk leaves the previous file whole.
// A private file (passwords, keys) is 0600 and its folder 0700; a shared one keeps the umask.
// Returns false, with the old file untouched, when anything fails.
bool writeFileAtomically(const QString& path, const QByteArray& data, FileAccess access);

// Creates the folder (and its parents) and, for private data, makes it 0700.
bool makeFolder(const QString& dir, FileAccess access);

} // namespace zl
