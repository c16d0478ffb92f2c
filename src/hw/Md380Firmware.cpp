#include "hw/Md380Firmware.h"

#include "app/Config.h"
#include "hw/Md380Vocoder.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QJsonObject>

namespace zl::hw {

QStringList md380FirmwareFolders()
{
    const QString appDir = QCoreApplication::applicationDirPath();
    QStringList folders;
    const QString configured =
        Config::instance().section(QStringLiteral("hardware")).value(QStringLiteral("md380_fw_dir")).toString();
    if (!configured.isEmpty())
        folders << configured;
    folders << appDir + QStringLiteral("/../share/zephyrlake/vocoder_fw") << appDir + QStringLiteral("/vocoder_fw")
            << appDir + QStringLiteral("/assets/vocoder_fw") << appDir + QStringLiteral("/../assets/vocoder_fw");
    return folders;
}

QString md380FirmwareProblem(const QString& folder)
{
    struct Image {
        const char* name;
        qint64 maxSize;
    };
    const Image images[] = {{"md380fw.img", Md380Vocoder::maxFirmwareSize}, {"md380ram.img", Md380Vocoder::maxRamSize}};
    QStringList problems;
    for (const Image& image : images) {
        const QString name = QString::fromLatin1(image.name);
        const QFileInfo file(folder + QLatin1Char('/') + name);
        if (!file.isFile() || !file.isReadable())
            problems << QStringLiteral("%1 is missing").arg(name);
        else if (file.size() == 0)
            problems << QStringLiteral("%1 is empty").arg(name);
        else if (file.size() > image.maxSize)
            problems << QStringLiteral("%1 is %2 bytes, more than the %3 of firmware d02.032")
                            .arg(name)
                            .arg(file.size())
                            .arg(image.maxSize);
    }
    return problems.join(QStringLiteral("; "));
}

} // namespace zl::hw
