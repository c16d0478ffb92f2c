#include "FileWrite.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

namespace zl {

namespace {

constexpr QFileDevice::Permissions kOwnerOnly = QFileDevice::ReadOwner | QFileDevice::WriteOwner;
constexpr QFileDevice::Permissions kOwnerFolder = kOwnerOnly | QFileDevice::ExeOwner;

} // namespace

bool makeFolder(const QString& dir, FileAccess access)
{
    if (!QDir().mkpath(dir))
        return false;
    return access == FileAccess::Shared || QFile::setPermissions(dir, kOwnerFolder);
}

bool writeFileAtomically(const QString& path, const QByteArray& data, FileAccess access)
{
    if (!makeFolder(QFileInfo(path).absolutePath(), access))
        return false;
    QSaveFile file(path);
    // A copy in place would defeat the point: without a temporary file nothing is written.
    file.setDirectWriteFallback(false);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    // The temporary file gets the final mode before any secret goes into it.
    if (access == FileAccess::Private && !file.setPermissions(kOwnerOnly)) {
        file.cancelWriting();
        return false;
    }
    // The buffer is flushed here and checked: commit() does not notice a write that fails only
    // when the last buffered block goes out, and would rename a cut-off file into place.
    if (file.write(data) != data.size() || !file.flush()) {
        file.cancelWriting();
        return false;
    }
    return file.commit();
}

} // namespace zl
