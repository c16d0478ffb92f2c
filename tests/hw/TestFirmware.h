#pragma once

#include <QByteArray>
#include <QFile>
#include <QString>

// The stand-in vocoder firmware (md380_test_fw.S, assembled by the build) and a RAM image
// for it, in which the decoder's call counter at its work area starts at decoderCountStart.
namespace testfw {

constexpr int decoderWorkOffset = 0x11224;
constexpr int decoderCountStart = 5;

// The image, zero-padded to size if that is larger.
inline QByteArray firmware(qsizetype size = 0)
{
    QFile file(QStringLiteral(ZL_TEST_FIRMWARE));
    QByteArray image = file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    if (size > image.size())
        image.append(QByteArray(size - image.size(), '\0'));
    return image;
}

inline QByteArray ram(qsizetype size = 0x20000)
{
    QByteArray image(size, '\0');
    image[decoderWorkOffset] = char(decoderCountStart);
    return image;
}

// Writes md380fw.img and md380ram.img into folder.
inline bool writeImages(const QString& folder)
{
    QFile fw(folder + QStringLiteral("/md380fw.img"));
    QFile ramFile(folder + QStringLiteral("/md380ram.img"));
    const QByteArray code = firmware();
    return !code.isEmpty() && fw.open(QIODevice::WriteOnly) && fw.write(code) == code.size() &&
           ramFile.open(QIODevice::WriteOnly) && ramFile.write(ram()) == 0x20000;
}

} // namespace testfw
