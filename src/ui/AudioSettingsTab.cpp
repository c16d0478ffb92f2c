#include "ui/AudioSettingsTab.h"

#include "app/Config.h"
#include "audio/AudioDevice.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFormLayout>
#include <QJsonObject>
#include <QLabel>
#include <QSpinBox>

namespace {

const QString kAudio = QStringLiteral("audio");

// "(system default)" first, then the devices by description; a stored device that is not
// plugged in now stays selectable, so that opening the tab does not forget it.
void fillDevices(QComboBox* combo, const QStringList& devices, const QString& stored)
{
    combo->addItem(QStringLiteral("(system default)"), QString());
    for (const QString& device : devices)
        combo->addItem(device, device);
    if (!stored.isEmpty() && combo->findData(stored) < 0)
        combo->addItem(QStringLiteral("%1 (not present)").arg(stored), stored);
    combo->setCurrentIndex(qMax(0, combo->findData(stored)));
}

QSpinBox* spin(int min, int max, int value, const QString& suffix)
{
    auto* box = new QSpinBox;
    box->setRange(min, max);
    box->setValue(qBound(min, value, max));
    box->setSuffix(suffix);
    return box;
}

} // namespace

AudioSettingsTab::AudioSettingsTab(QWidget* parent)
    : QWidget(parent), micDevice(new QComboBox), spkDevice(new QComboBox), rxAgc(new QCheckBox)
{
    const QJsonObject audio = zl::Config::instance().section(kAudio);
    micDevice->setObjectName(QStringLiteral("defaultMicDevice"));
    spkDevice->setObjectName(QStringLiteral("defaultSpkDevice"));
    fillDevices(micDevice, zl::AudioDevice::instance().listInputs(),
                audio.value(QStringLiteral("default_mic_device")).toString());
    fillDevices(spkDevice, zl::AudioDevice::instance().listOutputs(),
                audio.value(QStringLiteral("default_spk_device")).toString());
    micVolume = spin(0, 100, audio.value(QStringLiteral("default_mic_volume")).toInt(100), QStringLiteral(" %"));
    spkVolume = spin(0, 100, audio.value(QStringLiteral("default_spk_volume")).toInt(80), QStringLiteral(" %"));
    micGainDb = spin(-30, 30, audio.value(QStringLiteral("default_mic_gain_db")).toInt(0), QStringLiteral(" dB"));
    spkBoostDb = spin(0, 12, audio.value(QStringLiteral("default_spk_boost_db")).toInt(0), QStringLiteral(" dB"));
    jitterMs = spin(0, 1000, audio.value(QStringLiteral("rx_jitter_ms")).toInt(200), QStringLiteral(" ms"));
    jitterMs->setSingleStep(20);
    jitterMs->setObjectName(QStringLiteral("rxJitterMs"));
    micGainDb->setObjectName(QStringLiteral("micGainDb"));
    rxAgc->setText(QStringLiteral("Even out loud and quiet stations"));
    rxAgc->setChecked(audio.value(QStringLiteral("rx_agc")).toBool(false));

    auto* form = new QFormLayout(this);
    form->addRow(QStringLiteral("Microphone"), micDevice);
    form->addRow(QStringLiteral("Microphone volume"), micVolume);
    form->addRow(QStringLiteral("Microphone gain"), micGainDb);
    form->addRow(QStringLiteral("Speaker"), spkDevice);
    form->addRow(QStringLiteral("Speaker volume"), spkVolume);
    form->addRow(QStringLiteral("Speaker boost"), spkBoostDb);
    form->addRow(QStringLiteral("Automatic gain"), rxAgc);
    form->addRow(QStringLiteral("Jitter buffer"), jitterMs);
    auto* note = new QLabel(QStringLiteral("The jitter buffer holds received speech back to ride out late packets: "
                                           "more is smoother on a poor line, less answers faster; 0 turns it off."));
    note->setWordWrap(true);
    form->addRow(note);

    const auto dirty = [this] {
        changed = true;
        emit dirtied();
    };
    for (QComboBox* combo : {micDevice, spkDevice})
        connect(combo, &QComboBox::currentIndexChanged, this, dirty);
    for (QSpinBox* box : {micVolume, spkVolume, micGainDb, spkBoostDb, jitterMs})
        connect(box, &QSpinBox::valueChanged, this, dirty);
    connect(rxAgc, &QCheckBox::toggled, this, dirty);
}

void AudioSettingsTab::commit()
{
    if (!changed)
        return;
    changed = false;
    zl::Config& config = zl::Config::instance();
    QJsonObject audio = config.section(kAudio);
    audio.insert(QStringLiteral("default_mic_device"), micDevice->currentData().toString());
    audio.insert(QStringLiteral("default_spk_device"), spkDevice->currentData().toString());
    audio.insert(QStringLiteral("default_mic_volume"), micVolume->value());
    audio.insert(QStringLiteral("default_spk_volume"), spkVolume->value());
    audio.insert(QStringLiteral("default_mic_gain_db"), micGainDb->value());
    audio.insert(QStringLiteral("default_spk_boost_db"), spkBoostDb->value());
    audio.insert(QStringLiteral("rx_agc"), rxAgc->isChecked());
    audio.insert(QStringLiteral("rx_jitter_ms"), jitterMs->value());
    config.setSectionSilent(kAudio, audio);
    config.save();
}
