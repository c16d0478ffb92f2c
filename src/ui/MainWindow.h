#pragma once

#include <QHash>
#include <QMainWindow>
#include <QMetaObject>
#include <QPointer>
#include <QString>
#include <QStringList>

namespace zl {
class TxTimeout;
}

class BaseModePage;
namespace zl::dmr {
class DmrVoiceEncoder;
}
namespace zl {
class HostListSync;
class RepeaterDb;
class TgListSync;
class UserDb;
} // namespace zl
namespace zl::ui {
class SoundTestWindow;
}

class QButtonGroup;
class QComboBox;
class QGroupBox;
class QLabel;
class QMessageBox;
class QProgressBar;
class QPushButton;
class QSlider;
class QStackedWidget;
class QTableWidget;
class QTimer;

// The hub window of the program: mode cards, the page of each mode, the last-heard list,
// the audio rows and the push-to-talk button. It decides which mode is active and turns a
// press of PTT into a transmission of that mode.
class MainWindow : public QMainWindow {
    Q_OBJECT

public:
    explicit MainWindow(QWidget* parent = nullptr);
    ~MainWindow() override;

    static constexpr int kMaxLastHeard = 50;
    // A key release followed by a press within this time is keyboard auto-repeat.
    static constexpr int kPttRepeatGapMs = 50;
    // "12.3 s" below a minute, "m:ss" from there.
    static QString formatDuration(qint64 ms);

public slots:
    void openSettings();
    void selectMode(const QString& mode);
    void onPttToggled(bool on);
    void refreshCard(const QString& mode);
    void tickClock();
    void updateDatabases();
    void onConfigChanged();
    void openDetachedLastHeard();

protected:
    bool eventFilter(QObject* object, QEvent* event) override;
    void closeEvent(QCloseEvent* event) override;

private:
    // Hands a row of the compact table to the large view, when it is open.
    void passToLargeView(int row);
    void buildAudioRows(class QVBoxLayout* layout);
    void buildToolBar();
    void buildStatusStrip();
    // The four directories: loaded from the cache folder, refreshed when old, reported on the
    // status bar.
    void buildDirectories();
    // all: every list now, as the user asked; else only those past their age.
    void refreshDirectories(bool all);
    // The callsign of a DMR id from the user database, else the id in decimal.
    QString dmrCallsign(uint id) const;
    void showAbout();
    void updateAmbeStatus();
    void updateDmrStatus();
    void applyPttConfig();
    // Ends the transmission from outside the PTT controls (time-out, lost link) with a status line.
    void endTransmission(const QString& why);
    // Whether the link the transmission goes out on is still up.
    void checkTxLink(const QString& mode);
    void checkTxLinkNow(const QString& mode);
    void updateTxLabel();
    // Why a press of PTT would send nothing useful now; empty when it can go ahead.
    QString pttBlockReason() const;

    void onCallHeard(const QString& peerLabel, const QString& networkName, uint srcId, uint dstId, uchar slot,
                     uint streamId, bool privateCall);
    void onCallEnded(const QString& peerLabel, uint streamId, qlonglong durationMs);
    void startDmrTransmission();
    void stopDmrTransmission();
    void writePageLine(const QStringList& values);
    // Inserts a row at the top with the nine values; rows beyond the cap go.
    void insertRow(const QStringList& values, const QColor& background);
    void trimRows();
    void clearRowColour(int row);
    void saveLastHeard();
    void loadLastHeard();
    void closeTxRow();
    void openTxRow();

    void loadModeAudio(const QString& modeKey);
    void saveModeAudio(bool silent);
    void applyMicDevice();
    void refreshAudioDevices();
    void onSpkComboChanged();
    void onMuteToggled(QPushButton* button, bool muted, bool mic);

    QStringList modes;
    QHash<QString, BaseModePage*> pages;
    QHash<QString, QPushButton*> cards;
    QButtonGroup* modeGroup = nullptr;
    QString activeMode;
    // Laid out for a screen less than 600 px high (see zl::ui::isShortScreen).
    bool compact = false;
    bool pttActive = false;
    QString txMode;
    QString txPeerLabel;
    int txSlot = 0;
    int pttKey = 0;
    bool pttKbdHold = true;
    bool pttMouseHold = false;
    bool pendingConfigSave = false;
    QHash<quint32, int> liveRows;
    int txRow = -1;
    qint64 txStartMs = 0;
    zl::dmr::DmrVoiceEncoder* dmrEncoder = nullptr;
    QMetaObject::Connection dmrMicConnection;
    zl::HostListSync* hostListSync = nullptr;
    zl::UserDb* userDb = nullptr;
    zl::RepeaterDb* repeaterDb = nullptr;
    zl::TgListSync* tgListSync = nullptr;
    QTimer* audioSaveTimer = nullptr;
    QTimer* pttReleaseTimer = nullptr;
    zl::TxTimeout* txTimeout = nullptr;
    QTimer* clockTimer = nullptr;

    QStackedWidget* stack = nullptr;
    QGroupBox* lastHeardGroup = nullptr;
    QTableWidget* lastHeard = nullptr;
    QPushButton* micMute = nullptr;
    QPushButton* spkMute = nullptr;
    QComboBox* micCombo = nullptr;
    QComboBox* spkCombo = nullptr;
    QProgressBar* micLevel = nullptr;
    QProgressBar* spkLevel = nullptr;
    QSlider* micSlider = nullptr;
    QSlider* spkSlider = nullptr;
    QLabel* txLabel = nullptr;
    QPushButton* pttButton = nullptr;
    QLabel* ambeDot = nullptr;
    QLabel* ambeText = nullptr;
    QLabel* dmrDot = nullptr;
    QLabel* dmrText = nullptr;
    QLabel* callLabel = nullptr;
    QLabel* clockLabel = nullptr;
    QPointer<QMessageBox> aboutBox;
    QPointer<zl::ui::SoundTestWindow> soundTestWindow;
};
