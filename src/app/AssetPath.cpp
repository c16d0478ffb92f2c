#include "AssetPath.h"

#include <QCoreApplication>
#include <QFileInfo>

namespace zl {

QString assetPath(const QString& fileName)
{
    const QString base = QCoreApplication::applicationDirPath();
    for (const char* folder : {"/../share/zephyrlake/", "/assets/", "/../assets/"}) {
        const QString candidate = base + QLatin1String(folder) + fileName;
        if (QFileInfo::exists(candidate))
            return candidate;
    }
    return {};
}

} // namespace zl
