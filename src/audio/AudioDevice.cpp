#include "AudioDevice.h"

#include <QProcess>

namespace zl {

bool AudioDevice::restoreCardProfile(const QString& card, const QString& profile)
{
    if (card.isEmpty() || profile.isEmpty())
        return false;
    QProcess pactl;
    pactl.start(QStringLiteral("pactl"), {QStringLiteral("set-card-profile"), card, profile}, QIODevice::ReadWrite);
    if (!pactl.waitForStarted(1000))
        return false;
    if (!pactl.waitForFinished(3000)) {
        pactl.kill();
        pactl.waitForFinished(1000);
        return false;
    }
    return pactl.exitStatus() == QProcess::NormalExit && pactl.exitCode() == 0;
}

} // namespace zl
