#include "ui/ModePage.h"

#include "app/Config.h"
#include "app/Identity.h"
#include "audio/AudioMixer.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QJsonObject>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSlider>
#include <QSpinBox>
#include <QVBoxLayout>

ModePage::ModePage(const QString& mode, QWidget* parent) : BaseModePage(mode, parent)
{
    auto* layout = new QVBoxLayout(this);
    auto* top = new QHBoxLayout;
    enabledBox = new QCheckBox(QStringLiteral("Enabled"));
    top->addWidget(enabledBox);
    top->addStretch(1);
    layout->addLayout(top);
    auto* notice = new QLabel(QStringLiteral("%1 has no network client in this program: its settings are kept, "
                                             "but nothing is sent or received.")
                                  .arg(mode));
    notice->setObjectName(QStringLiteral("noClientNotice"));
    notice->setWordWrap(true);
    layout->addWidget(notice);

    auto* form = new QFormLayout;
    identityCombo = new QComboBox;
    serverCombo = new QComboBox;
    targetEdit = new QLineEdit;
    form->addRow(QStringLiteral("Identity"), identityCombo);
    form->addRow(QStringLiteral("Server"), serverCombo);
    form->addRow(targetLabel(mode), targetEdit);
    if (mode == QLatin1String("DMR")) {
        tsSpin = new QSpinBox;
        tsSpin->setRange(1, 2);
        ccSpin = new QSpinBox;
        ccSpin->setRange(0, 15);
        form->addRow(QStringLiteral("TS"), tsSpin);
        form->addRow(QStringLiteral("CC"), ccSpin);
    }
    micGain = new QSlider(Qt::Horizontal);
    micGain->setRange(-20, 20);
    spkBoost = new QSlider(Qt::Horizontal);
    spkBoost->setRange(0, 20);
    form->addRow(QStringLiteral("Mic gain (dB)"), micGain);
    form->addRow(QStringLiteral("Speaker boost (dB)"), spkBoost);
    layout->addLayout(form);

    auto* buttons = new QHBoxLayout;
    prioButton = new QPushButton(QStringLiteral("PRIO"));
    prioButton->setCheckable(true);
    prioButton->setToolTip(QStringLiteral("This mode may interrupt the one that is playing"));
    buttons->addWidget(prioButton);
    buttons->addStretch(1);
    layout->addLayout(buttons);

    layout->addStretch(1);

    reloadConfig();

    connect(enabledBox, &QCheckBox::toggled, this, &ModePage::onEnabledToggled);
    connect(identityCombo, &QComboBox::currentIndexChanged, this,
            [this] { onIdentityChanged(identityCombo->currentData().toString()); });
    connect(serverCombo, &QComboBox::currentIndexChanged, this, &ModePage::storeFields);
    connect(targetEdit, &QLineEdit::editingFinished, this, &ModePage::storeFields);
    if (tsSpin) {
        connect(tsSpin, &QSpinBox::valueChanged, this, &ModePage::storeFields);
        connect(ccSpin, &QSpinBox::valueChanged, this, &ModePage::storeFields);
    }
    connect(micGain, &QSlider::valueChanged, this, &ModePage::onAudioFieldChanged);
    connect(spkBoost, &QSlider::valueChanged, this, &ModePage::onAudioFieldChanged);
    connect(prioButton, &QPushButton::toggled, this, &ModePage::onAudioFieldChanged);
}

QString ModePage::targetLabel(const QString& mode)
{
    if (mode == QLatin1String("D-STAR") || mode == QLatin1String("M17"))
        return QStringLiteral("Module");
    if (mode == QLatin1String("YSF") || mode == QLatin1String("NXDN"))
        return QStringLiteral("DG-ID / Ref");
    if (mode == QLatin1String("P25"))
        return QStringLiteral("NAC/TG");
    if (mode == QLatin1String("APRS"))
        return QStringLiteral("Filter / SSID");
    if (mode == QLatin1String("POCSAG"))
        return QStringLiteral("RIC");
    return QStringLiteral("TG");
}

bool ModePage::isModeEnabled() const
{
    return enabledBox->isChecked();
}

QString ModePage::serverText() const
{
    // The disabled placeholder entry carries no id and names no server.
    return serverCombo->currentData().toString().isEmpty() ? QString() : serverCombo->currentText();
}

QString ModePage::targetText() const
{
    return targetEdit->text();
}

void ModePage::reloadConfig()
{
    const QJsonObject section = zl::Config::instance().section(modeKey());
    const QJsonObject audio = section.value(QStringLiteral("audio")).toObject();
    const QSignalBlocker b1(enabledBox), b2(serverCombo), b3(micGain), b4(spkBoost), b5(prioButton);
    enabledBox->setChecked(section.value(QStringLiteral("enabled")).toBool(false));
    fillIdentityCombo(identityCombo, modeKey());
    if (serverCombo->count() == 0) {
        // First fill: start from the stored choice.
        serverCombo->addItem(QString(), section.value(QStringLiteral("server")).toString());
    }
    fillServerCombo(serverCombo, mode());
    if (!targetEdit->hasFocus())
        targetEdit->setText(section.value(QStringLiteral("dest")).toString());
    if (tsSpin) {
        const QSignalBlocker b6(tsSpin), b7(ccSpin);
        tsSpin->setValue(section.value(QStringLiteral("ts")).toInt(2));
        ccSpin->setValue(section.value(QStringLiteral("cc")).toInt(1));
    }
    micGain->setValue(audio.value(QStringLiteral("mic_gain_db")).toInt(0));
    spkBoost->setValue(audio.value(QStringLiteral("spk_boost_db")).toInt(0));
    prioButton->setChecked(zl::audio::AudioMixer::instance().isPriority(modeKey()));
}

void ModePage::storeFields()
{
    zl::Config& config = zl::Config::instance();
    QJsonObject section = config.section(modeKey());
    section.insert(QStringLiteral("enabled"), enabledBox->isChecked());
    section.insert(QStringLiteral("server"), serverCombo->currentData().toString());
    section.insert(QStringLiteral("dest"), targetEdit->text());
    if (tsSpin) {
        section.insert(QStringLiteral("ts"), tsSpin->value());
        section.insert(QStringLiteral("cc"), ccSpin->value());
    }
    QJsonObject audio = section.value(QStringLiteral("audio")).toObject();
    audio.insert(QStringLiteral("mic_gain_db"), micGain->value());
    audio.insert(QStringLiteral("spk_boost_db"), spkBoost->value());
    section.insert(QStringLiteral("audio"), audio);
    config.setSectionSilent(modeKey(), section);
    config.save();
}

void ModePage::onEnabledToggled(bool on)
{
    storeFields();
    emit enabledChanged(on);
}

void ModePage::onAudioFieldChanged()
{
    zl::audio::AudioMixer::instance().setPriority(modeKey(), prioButton->isChecked());
    storeFields();
}

void ModePage::onIdentityChanged(const QString& label)
{
    if (!label.isEmpty())
        zl::setActiveIdentity(modeKey(), label);
}
