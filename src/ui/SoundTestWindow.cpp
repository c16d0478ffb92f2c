#include "ui/SoundTestWindow.h"

#include "app/Config.h"
#include "audio/AudioMixer.h"
#include "ui/AudioDeviceCombos.h"
#include "ui/ScreenFit.h"
#include "ui/StyleSheet.h"

#include <QAudioDevice>
#include <QAudioSink>
#include <QBuffer>
#include <QCloseEvent>
#include <QComboBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QJsonObject>
#include <QLabel>
#include <QMediaDevices>
#include <QProgressBar>
#include <QPushButton>
#include <QSlider>
#include <QTimer>

#include <cmath>
#include <numbers>

namespace zl::ui {

namespace {

const QString kAudio = QStringLiteral("audio");
const QString kName = QStringLiteral("soundtest");
const QString kLoopMode = QStringLiteral("soundtest");
constexpr int kToneHz = 440;
constexpr int kToneMs = 1000;

QJsonObject audioSection()
{
    return Config::instance().section(kAudio);
}

void selectData(QComboBox* combo, const QString& data)
{
    combo->setCurrentIndex(qMax(0, combo->findData(data, Qt::UserRole, Qt::MatchCaseSensitive)));
}

// One second of a sine at this linear level, in the sink's format (16-bit or float samples).
QByteArray tone(const QAudioFormat& format, double level)
{
    const int frames = format.sampleRate() * kToneMs / 1000;
    const int channels = format.channelCount();
    QByteArray out(qsizetype(frames) * format.bytesPerFrame(), '\0');
    for (int i = 0; i < frames; ++i) {
        const double v = level * std::sin(2.0 * std::numbers::pi * kToneHz * i / format.sampleRate());
        for (int c = 0; c < channels; ++c) {
            char* at = out.data() + qsizetype(i) * format.bytesPerFrame() + c * format.bytesPerSample();
            if (format.sampleFormat() == QAudioFormat::Float)
                *reinterpret_cast<float*>(at) = float(v);
            else if (format.sampleFormat() == QAudioFormat::Int16)
                *reinterpret_cast<qint16*>(at) = qint16(std::lround(v * 32767.0));
        }
    }
    return out;
}

} // namespace

SoundTestWindow::SoundTestWindow(QWidget* parent)
    : QWidget(parent, Qt::Window), micCombo(new QComboBox), spkCombo(new QComboBox), micLevel(new QProgressBar),
      spkLevel(new QProgressBar), toneButton(new QPushButton(QStringLiteral("▶ Play 440 Hz test tone (1 s)"))),
      loopBack(new QPushButton(QStringLiteral("🔁 Hear my microphone"))), status(new QLabel)
{
    setWindowTitle(QStringLiteral("zephyrlake · Sound Test"));
    setAttribute(Qt::WA_DeleteOnClose);
    micCombo->setObjectName(QStringLiteral("micCombo"));
    spkCombo->setObjectName(QStringLiteral("spkCombo"));
    toneButton->setObjectName(QStringLiteral("toneButton"));
    loopBack->setObjectName(QStringLiteral("loopBackButton"));
    loopBack->setCheckable(true);
    loopBack->setToolTip(QStringLiteral("Plays the microphone on the speaker as it would go out: with its gain and "
                                        "the transmit chain of EQ / LADSPA. Use headphones."));
    for (QProgressBar* bar : {micLevel, spkLevel}) {
        bar->setRange(0, 100);
        bar->setValue(0);
        bar->setTextVisible(false);
    }
    const QJsonObject audio = audioSection();
    fillMicCombo(micCombo, QStringLiteral("(System default)"));
    fillSpkCombo(spkCombo, QStringLiteral("(System default)"));
    selectData(micCombo, audio.value(QStringLiteral("default_mic_device")).toString());
    selectData(spkCombo, audio.value(QStringLiteral("default_spk_device")).toString());

    auto* form = new QFormLayout(this);
    form->addRow(QStringLiteral("Microphone"), micCombo);
    addLevel(QStringLiteral("Mic volume"), "default_mic_volume", 0, 100, 100, "%d%%");
    QSlider* micGain = addLevel(QStringLiteral("Mic gain"), "default_mic_gain_db", -30, 30, 0, "%+d dB");
    form->addRow(QStringLiteral("Mic level"), micLevel);
    form->addRow(QStringLiteral("Speaker"), spkCombo);
    spkVolume = addLevel(QStringLiteral("Speaker volume"), "default_spk_volume", 0, 100, 80, "%d%%");
    spkBoost = addLevel(QStringLiteral("Speaker boost"), "default_spk_boost_db", 0, 12, 0, "+%d dB");
    form->addRow(QStringLiteral("Speaker level"), spkLevel);
    auto* buttons = new QHBoxLayout;
    buttons->addWidget(toneButton);
    buttons->addWidget(loopBack);
    form->addRow(buttons);
    form->addRow(status);

    audio::AudioMixer& mixer = audio::AudioMixer::instance();
    connect(micCombo, &QComboBox::currentIndexChanged, this, &SoundTestWindow::onMicDeviceChanged);
    connect(spkCombo, &QComboBox::currentIndexChanged, this, &SoundTestWindow::onSpkDeviceChanged);
    connect(toneButton, &QPushButton::clicked, this, &SoundTestWindow::onTestTonePressed);
    connect(micGain, &QSlider::valueChanged, &mixer, &audio::AudioMixer::setMicGainDb);
    connect(spkBoost, &QSlider::valueChanged, &mixer, &audio::AudioMixer::setSpkBoostDb);
    connect(&mixer, &audio::AudioMixer::micLevelChanged, micLevel, &QProgressBar::setValue);
    connect(&mixer, &audio::AudioMixer::spkLevelChanged, spkLevel, &QProgressBar::setValue);
    connect(&mixer, &audio::AudioMixer::micAvailabilityChanged, status, &QLabel::setText);
    connect(&mixer, &audio::AudioMixer::micPcmReady, this, [this](const QByteArray& pcm) {
        if (loopBack->isChecked())
            audio::AudioMixer::instance().pushPcm(kLoopMode, pcm);
    });

    // The meter needs the microphone open, also when no mode has opened it yet.
    onMicDeviceChanged();
    if (const QByteArray geometry = Config::instance().windowGeometry(kName);
        geometry.isEmpty() || !restoreGeometry(geometry))
        resize(uiScale(460), uiScale(360));
    fitToScreen(this);
}

SoundTestWindow::~SoundTestWindow()
{
    stopTone();
}

QSlider* SoundTestWindow::addLevel(const QString& label, const char* key, int min, int max, int fallback,
                                   const char* format)
{
    auto* slider = new QSlider(Qt::Horizontal);
    slider->setObjectName(QString::fromLatin1(key));
    slider->setRange(min, max);
    slider->setValue(qBound(min, audioSection().value(QLatin1String(key)).toInt(fallback), max));
    auto* text = new QLabel;
    text->setMinimumWidth(uiScale(56));
    const auto show = [text, format](int value) { text->setText(QString::asprintf(format, value)); };
    show(slider->value());
    connect(slider, &QSlider::valueChanged, this, [this, key, show](int value) {
        show(value);
        store(QString::fromLatin1(key), value);
    });
    auto* row = new QHBoxLayout;
    row->addWidget(slider, 1);
    row->addWidget(text);
    static_cast<QFormLayout*>(layout())->addRow(label, row);
    return slider;
}

void SoundTestWindow::store(const QString& key, const QJsonValue& value)
{
    Config& config = Config::instance();
    QJsonObject audio = config.section(kAudio);
    if (audio.value(key) == value)
        return;
    audio.insert(key, value);
    config.setSectionSilent(kAudio, audio);
    config.save();
}

void SoundTestWindow::onMicDeviceChanged()
{
    const QString device = micCombo->currentData().toString();
    store(QStringLiteral("default_mic_device"), device);
    audio::AudioMixer::instance().setMicDevice(device);
}

void SoundTestWindow::onSpkDeviceChanged()
{
    QString card, profile;
    if (!switchEntry(spkCombo->currentData().toString(), &card, &profile)) {
        store(QStringLiteral("default_spk_device"), spkCombo->currentData().toString());
        return;
    }
    status->setText(switchCardProfile(card, profile) ? QStringLiteral("Switched %1 to %2").arg(card, profile)
                                                     : QStringLiteral("The sound server did not switch %1").arg(card));
    // The sound server needs a moment to make the card's new outputs.
    QTimer::singleShot(250, this, [this] {
        {
            const QSignalBlocker blocker(spkCombo);
            fillSpkCombo(spkCombo, QStringLiteral("(System default)"));
            pickLastDevice(spkCombo);
        }
        onSpkDeviceChanged();
    });
}

void SoundTestWindow::onTestTonePressed()
{
    if (toneSink)
        return;
    const QString wanted = spkCombo->currentData().toString();
    QAudioDevice device = QMediaDevices::defaultAudioOutput();
    for (const QAudioDevice& output : QMediaDevices::audioOutputs()) {
        if (!wanted.isEmpty() && output.description() == wanted)
            device = output;
    }
    if (device.isNull()) {
        status->setText(QStringLiteral("No speaker found"));
        return;
    }
    QAudioFormat format;
    format.setSampleRate(48000);
    format.setChannelCount(2);
    format.setSampleFormat(QAudioFormat::Int16);
    if (!device.isFormatSupported(format))
        format = device.preferredFormat();
    // Half of full scale at 100 %, as loud as speech, with the speaker's volume and boost.
    const double level = qMin(1.0, 0.5 * spkVolume->value() / 100.0 * std::pow(10.0, spkBoost->value() / 20.0));
    toneBuffer = new QBuffer(this);
    toneBuffer->setData(tone(format, level));
    toneBuffer->open(QIODevice::ReadOnly);
    toneSink = new QAudioSink(device, format, this);
    toneButton->setEnabled(false);
    spkLevel->setValue(int(level * 100));
    connect(toneSink, &QAudioSink::stateChanged, this, [this](QAudio::State state) {
        if (state == QAudio::IdleState || state == QAudio::StoppedState)
            stopTone();
    });
    // A sink that never reports its end still gives the button back.
    QTimer::singleShot(kToneMs + 1000, toneSink, [this] { stopTone(); });
    status->setText(QStringLiteral("Playing on %1").arg(device.description()));
    toneSink->start(toneBuffer);
}

void SoundTestWindow::stopTone()
{
    if (!toneSink)
        return;
    QAudioSink* sink = toneSink;
    toneSink = nullptr;
    sink->disconnect(this);
    sink->stop();
    sink->deleteLater();
    toneBuffer->deleteLater();
    toneBuffer = nullptr;
    toneButton->setEnabled(true);
    spkLevel->setValue(0);
}

void SoundTestWindow::closeEvent(QCloseEvent* event)
{
    Config::instance().setWindowGeometry(kName, saveGeometry());
    loopBack->setChecked(false);
    QWidget::closeEvent(event);
}

} // namespace zl::ui
