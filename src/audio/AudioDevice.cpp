#include "AudioDevice.h"

#include <QAudioDevice>
#include <QMediaDevices>
#include <QProcess>

namespace zl {

namespace {

QStringList descriptions(const QList<QAudioDevice>& devices)
{
    QStringList names;
    for (const QAudioDevice& device : devices)
        names.append(device.description());
    return names;
}

// Runs pactl; its standard output if it ran to a normal end with code 0, else null. A hung
// pactl is killed: the main thread waits at most 4 s.
QByteArray runPactl(const QStringList& args)
{
    QProcess pactl;
    pactl.start(QStringLiteral("pactl"), args, QIODevice::ReadWrite);
    if (!pactl.waitForStarted(1000))
        return {};
    if (!pactl.waitForFinished(3000)) {
        pactl.kill();
        pactl.waitForFinished(1000);
        return {};
    }
    if (pactl.exitStatus() != QProcess::NormalExit || pactl.exitCode() != 0)
        return {};
    QByteArray out = pactl.readAllStandardOutput();
    if (out.isNull())
        out = QByteArray("");
    return out;
}

class PulseAudioDevice : public AudioDevice {
public:
    QStringList listInputs() const override { return descriptions(QMediaDevices::audioInputs()); }
    QStringList listOutputs() const override { return descriptions(QMediaDevices::audioOutputs()); }

    QList<CardProfile> listCardProfiles() const override
    {
        return parseCardProfiles(QString::fromUtf8(runPactl({QStringLiteral("list"), QStringLiteral("cards")})));
    }

    bool setCardProfile(const QString& card, const QString& profile) const override
    {
        if (card.isEmpty() || profile.isEmpty())
            return false;
        return !runPactl({QStringLiteral("set-card-profile"), card, profile}).isNull();
    }
};

// One card's profile section as the walk through the list gathers it.
struct CardState {
    QString name;
    QString active;
    QList<CardProfile> offered;

    // The card's profiles except those in use now (a combined profile names each part).
    void closeInto(QList<CardProfile>& result)
    {
        const QStringList inUse = active.split(QLatin1Char('+'));
        for (const CardProfile& p : std::as_const(offered)) {
            if (!inUse.contains(p.profile))
                result.append(p);
        }
        *this = {};
    }
};

} // namespace

AudioDevice& AudioDevice::instance()
{
    static PulseAudioDevice device;
    return device;
}

QList<CardProfile> AudioDevice::parseCardProfiles(const QString& cardList)
{
    QList<CardProfile> result;
    CardState card;
    bool inProfiles = false;
    const QString sinksMark = QStringLiteral(" (sinks:");
    for (const QString& raw : cardList.split(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
        const QString line = raw.trimmed();
        if (line.startsWith(QLatin1String("Name: "))) {
            card.closeInto(result);
            inProfiles = false;
            // Only ALSA cards have output profiles to switch between; Bluetooth and the like don't count.
            if (line.startsWith(QLatin1String("Name: alsa_card.")))
                card.name = line.mid(6).trimmed();
        } else if (line == QLatin1String("Profiles:")) {
            inProfiles = true;
        } else if (line == QLatin1String("Ports:")) {
            inProfiles = false;
        } else if (line.startsWith(QLatin1String("Active Profile:"))) {
            inProfiles = false;
            card.active = line.mid(line.indexOf(QLatin1Char(':')) + 1).trimmed();
        } else if (inProfiles && !card.name.isEmpty()) {
            const qsizetype colon = line.indexOf(QLatin1String(": "));
            if (colon < 0)
                continue;
            const QString name = line.left(colon);
            if (!name.startsWith(QLatin1String("output:")) || !line.contains(QLatin1String("available: yes")) ||
                name.contains(QLatin1String("surround")) || name.contains(QLatin1Char('+')))
                continue;
            const qsizetype end = line.indexOf(sinksMark, colon);
            const QString description = line.mid(colon + 2, end < 0 ? -1 : end - colon - 2).trimmed();
            card.offered.append({card.name, name, description});
        }
    }
    card.closeInto(result);
    return result;
}

} // namespace zl
