#pragma once

#include <QJsonValue>
#include <QWidget>

class QAudioSink;
class QBuffer;
class QComboBox;
class QLabel;
class QProgressBar;
class QPushButton;
class QSlider;

namespace zl::ui {

// A place to check the audio before going on the air: a test tone on the chosen speaker, the
// microphone's level, and the microphone heard back through the transmit chain. The devices
// and levels chosen here are the defaults every mode starts from, stored as they change.
class SoundTestWindow : public QWidget {
    Q_OBJECT

public:
    explicit SoundTestWindow(QWidget* parent = nullptr);
    ~SoundTestWindow() override;

    bool isTonePlaying() const { return toneSink != nullptr; }

protected:
    void closeEvent(QCloseEvent* event) override;

private slots:
    void onMicDeviceChanged();
    void onSpkDeviceChanged();
    void onTestTonePressed();

private:
    QSlider* addLevel(const QString& label, const char* key, int min, int max, int fallback, const char* format);
    void store(const QString& key, const QJsonValue& value);
    void stopTone();

    QComboBox* micCombo;
    QComboBox* spkCombo;
    QSlider* spkVolume = nullptr;
    QSlider* spkBoost = nullptr;
    QProgressBar* micLevel;
    QProgressBar* spkLevel;
    QPushButton* toneButton;
    QPushButton* loopBack;
    QLabel* status;
    QAudioSink* toneSink = nullptr;
    QBuffer* toneBuffer = nullptr;
};

} // namespace zl::ui
