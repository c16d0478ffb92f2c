// Any bytes as config.json: loading and reading identities never crashes.
#include "app/Config.h"
#include "app/Identity.h"

#include <QFile>
#include <QJsonArray>
#include <QTemporaryDir>

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("config.json"));
    {
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
            return 0;
        file.write(reinterpret_cast<const char*>(data), qint64(size));
    }
    zl::Config config(path);
    (void)config.callsign();
    (void)config.defaultMode();
    (void)config.windowGeometry(QStringLiteral("main"));
    const QJsonObject all = config.section(QStringLiteral("identities"));
    for (const QString& mode : all.keys()) {
        for (const QJsonValue& value : all.value(mode).toArray())
            (void)zl::identityDisplayText(zl::identityFromJson(value.toObject()));
    }
    return 0;
}
