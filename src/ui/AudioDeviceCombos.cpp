#include "ui/AudioDeviceCombos.h"

#include "app/Config.h"
#include "audio/AudioDevice.h"

#include <QComboBox>
#include <QJsonObject>

namespace zl::ui {

namespace {

const QString kSwitch = QStringLiteral("switch:");

void fill(QComboBox* combo, const QString& firstText, const QStringList& devices)
{
    combo->clear();
    combo->setMaxVisibleItems(10);
    combo->addItem(firstText, QString());
    for (const QString& device : devices)
        combo->addItem(device, device);
}

} // namespace

void fillMicCombo(QComboBox* combo, const QString& firstText)
{
    fill(combo, firstText, AudioDevice::instance().listInputs());
}

void fillSpkCombo(QComboBox* combo, const QString& firstText)
{
    fill(combo, firstText, AudioDevice::instance().listOutputs());
    for (const CardProfile& p : AudioDevice::instance().listCardProfiles())
        combo->addItem(QStringLiteral("↻ %1 (activate)").arg(p.description), kSwitch + p.card + '|' + p.profile);
}

bool switchEntry(const QString& data, QString* card, QString* profile)
{
    if (!data.startsWith(kSwitch))
        return false;
    const QString rest = data.mid(kSwitch.size());
    const qsizetype bar = rest.indexOf(QLatin1Char('|'));
    if (bar <= 0)
        return false;
    *card = rest.left(bar);
    *profile = rest.mid(bar + 1);
    return true;
}

bool switchCardProfile(const QString& card, const QString& profile)
{
    if (!AudioDevice::instance().setCardProfile(card, profile))
        return false;
    Config& config = Config::instance();
    QJsonObject audio = config.section(QStringLiteral("audio"));
    audio.insert(QStringLiteral("default_spk_card"), card);
    audio.insert(QStringLiteral("default_spk_profile"), profile);
    config.setSectionSilent(QStringLiteral("audio"), audio);
    config.save();
    return true;
}

void pickLastDevice(QComboBox* combo)
{
    for (int i = combo->count() - 1; i > 0; --i) {
        if (!combo->itemData(i).toString().startsWith(kSwitch)) {
            combo->setCurrentIndex(i);
            return;
        }
    }
    combo->setCurrentIndex(0);
}

} // namespace zl::ui
