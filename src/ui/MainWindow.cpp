#include "MainWindow.h"

#include "app/Config.h"
#include "app/Identity.h"
#include "app/ThreadHandOff.h"
#include "app/TxTimeout.h"
#include "app/Version.h"
#include "audio/AudioMixer.h"
#include "db/HostListSync.h"
#include "db/RepeaterDb.h"
#include "db/TgListSync.h"
#include "db/UserDb.h"
#include "dmr/DmrPeerManager.h"
#include "dmr/DmrVoiceEncoder.h"
#include "dmr/Peer.h"
#include "hw/Dv3000.h"
#include "hw/Dv3000Pool.h"
#include "ui/AllStarModePage.h"
#include "ui/AprsModePage.h"
#include "ui/AudioDeviceCombos.h"
#include "ui/DmrModePage.h"
#include "ui/DmrSmsPage.h"
#include "ui/EchoLinkModePage.h"
#include "ui/FlowLayout.h"
#include "ui/LastHeardWindow.h"
#include "ui/M17ModePage.h"
#include "ui/ModePage.h"
#include "ui/NxdnModePage.h"
#include "ui/PocsagModePage.h"
#include "ui/ScreenFit.h"
#include "ui/SettingsDialog.h"
#include "ui/SoundTestWindow.h"
#include "ui/StyleSheet.h"
#include "ui/SvxLinkModePage.h"
#include "ui/YsfModePage.h"

#include <QAction>
#include <QApplication>
#include <QButtonGroup>
#include <QCloseEvent>
#include <QComboBox>
#include <QDateTime>
#include <QDebug>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QJsonArray>
#include <QJsonObject>
#include <QKeyEvent>
#include <QKeySequence>
#include <QLabel>
#include <QMessageBox>
#include <QMouseEvent>
#include <QProgressBar>
#include <QPushButton>
#include <QScreen>
#include <QScrollArea>
#include <QSlider>
#include <QStackedWidget>
#include <QStatusBar>
#include <QStyle>
#include <QTableWidget>
#include <QTimer>

#include <QToolBar>
#include <QVBoxLayout>
#include <cmath>

#include <optional>

namespace {

const QStringList kLastHeardKeys = {"time", "call", "country", "mode", "server", "target", "dur", "loss", "rssi"};
constexpr int kDurColumn = 6;
const QColor kTxBackground(220, 40, 40, 64);
const QColor kRxBackground(0, 200, 80, 56);

// The modes whose pages have their own message views and no voice.
bool isMessageMode(const QString& mode)
{
    return mode == QLatin1String("APRS") || mode == QLatin1String("POCSAG") || mode == QLatin1String("DMR SMS");
}

std::optional<zl::dmr::Peer> findPeer(const QString& label)
{
    if (label.isEmpty())
        return std::nullopt;
    for (const zl::dmr::Peer& peer : zl::dmr::loadPeers()) {
        if (peer.label == label)
            return peer;
    }
    return std::nullopt;
}

QString statusDotStyle(const char* colour)
{
    return QStringLiteral("color:%1; font-size:14px;").arg(QLatin1String(colour));
}

} // namespace

MainWindow::MainWindow(QWidget* parent) : QMainWindow(parent)
{
    setWindowTitle(QStringLiteral("zephyrlake · %1").arg(QLatin1String(zl::kAppVersion)));
    compact = zl::ui::isShortScreen();
    // On a short screen the window takes the whole screen (cut to it below): every line counts.
    resize(compact ? QSize(4000, 4000) : QSize(zl::uiScale(780), zl::uiScale(1020)));
    setMinimumSize(zl::uiScale(380), compact ? qMin(zl::uiScale(560), 400) : zl::uiScale(560));
    modes = BaseModePage::modeNames();

    auto* central = new QWidget;
    auto* layout = new QVBoxLayout(central);
    const int margin = compact ? 4 : 12;
    layout->setContentsMargins(margin, margin, margin, margin);
    layout->setSpacing(compact ? 4 : 10);

    // Told once, where the user looks: what happened to a configuration that could not be read.
    const QString configProblem = zl::Config::instance().loadProblem();
    if (!configProblem.isEmpty()) {
        qWarning().noquote() << "MainWindow:" << configProblem;
        auto* banner = new QLabel(configProblem);
        banner->setObjectName(QStringLiteral("configProblem"));
        banner->setWordWrap(true);
        banner->setTextInteractionFlags(Qt::TextSelectableByMouse);
        banner->setStyleSheet(QStringLiteral("color:#ff5050; font-weight:600;"));
        layout->addWidget(banner);
    }

    auto* cardArea = new QWidget;
    auto* flow = new zl::ui::FlowLayout(compact ? 4 : 8, cardArea);
    modeGroup = new QButtonGroup(this);
    modeGroup->setExclusive(true);
    for (const QString& mode : std::as_const(modes)) {
        auto* card = new QPushButton;
        card->setObjectName(QStringLiteral("card_") + BaseModePage::keyOf(mode));
        card->setProperty("card", true);
        card->setCheckable(true);
        card->setProperty("helpText", QStringLiteral("%1: click to make it the active mode. PTT and the audio "
                                                     "fields below act on the active mode; all enabled modes keep "
                                                     "receiving.")
                                          .arg(mode));
        modeGroup->addButton(card);
        cards.insert(mode, card);
        flow->addWidget(card);
        connect(card, &QPushButton::clicked, this, [this, mode] { selectMode(mode); });
    }
    layout->addWidget(cardArea);

    // Modes whose own page is not built yet show the generic page for now.
    stack = new QStackedWidget;
    stack->setObjectName(QStringLiteral("modeStack"));
    for (const QString& mode : std::as_const(modes)) {
        BaseModePage* page = nullptr;
        if (mode == QLatin1String("DMR"))
            page = new DmrModePage;
        else if (mode == QLatin1String("M17"))
            page = new M17ModePage;
        else if (mode == QLatin1String("YSF"))
            page = new YsfModePage;
        else if (mode == QLatin1String("NXDN"))
            page = new NxdnModePage;
        else if (mode == QLatin1String("AllStar"))
            page = new AllStarModePage;
        else if (mode == QLatin1String("Echolink"))
            page = new EchoLinkModePage;
        else if (mode == QLatin1String("SvxLink"))
            page = new SvxLinkModePage;
        else if (mode == QLatin1String("APRS"))
            page = new AprsModePage;
        else if (mode == QLatin1String("DMR SMS"))
            page = new DmrSmsPage;
        else if (mode == QLatin1String("POCSAG"))
            page = new PocsagModePage;
        else
            page = new ModePage(mode);
        pages.insert(mode, page);
        stack->addWidget(page);
        connect(page, &BaseModePage::enabledChanged, this, [this, mode] { refreshCard(mode); });
        connect(page, &BaseModePage::connectedChanged, this, [this, mode] {
            refreshCard(mode);
            checkTxLink(mode);
        });
        connect(page, &BaseModePage::statusTextChanged, this, [this, mode] { refreshCard(mode); });
        connect(page, &BaseModePage::lastHeardLine, this,
                [this, mode](const QString& time, const QString& call, const QString& country, const QString& network,
                             const QString& target, const QString& duration, const QString& lossPct,
                             const QString& rssi) {
                    writePageLine({time, call, country, mode, network, target, duration, lossPct, rssi});
                });
    }
    for (const QString& mode : std::as_const(modes))
        refreshCard(mode);
    // Wide enough at start for the cards to take two lines, where the screen allows it.
    int cardsWidth = 0;
    int widestCard = 0;
    for (const QPushButton* card : std::as_const(cards)) {
        cardsWidth += card->minimumWidth() + flow->spacing();
        widestCard = qMax(widestCard, card->minimumWidth());
    }
    // Half of them, and one more for the gap a card that does not fit leaves at a line's end.
    const int twoLines = cardsWidth / 2 + widestCard + 2 * layout->contentsMargins().left() + 24;
    resize(size().expandedTo(QSize(twoLines, 0)));
    // A page taller than the space left scrolls instead of being squeezed.
    auto* pageScroll = new QScrollArea;
    pageScroll->setWidgetResizable(true);
    pageScroll->setFrameShape(QFrame::NoFrame);
    pageScroll->setWidget(stack);
    // At least four rows of the page stay in view, whatever the last-heard table wants.
    pageScroll->setMinimumHeight(zl::uiScale(compact ? 150 : 170));
    layout->addWidget(pageScroll, 3);

    lastHeardGroup = new QGroupBox(QStringLiteral("Last heard (all active modes — click for large view)"));
    lastHeardGroup->setObjectName(QStringLiteral("lastHeardGroup"));
    lastHeardGroup->setProperty("helpText", QStringLiteral("The newest 50 stations heard and your own transmissions, "
                                                           "newest on top. Kept across restarts."));
    auto* groupLayout = new QVBoxLayout(lastHeardGroup);
    lastHeard = new QTableWidget(0, int(kLastHeardKeys.size()));
    lastHeard->setObjectName(QStringLiteral("lastHeard"));
    lastHeard->setHorizontalHeaderLabels(
        {"TIME", "CALLSIGN", "COUNTRY", "MODE", "SERVER", "TARGET", "DUR", "LOSS %", "RSSI"});
    lastHeard->setEditTriggers(QAbstractItemView::NoEditTriggers);
    lastHeard->setSelectionBehavior(QAbstractItemView::SelectRows);
    lastHeard->setAlternatingRowColors(true);
    lastHeard->verticalHeader()->setVisible(false);
    // Every column in view at any width: no column hides behind a scroll bar.
    lastHeard->horizontalHeader()->setSectionResizeMode(QHeaderView::Stretch);
    lastHeard->setMinimumHeight(compact ? 72 : zl::uiScale(140));
    groupLayout->addWidget(lastHeard);
    connect(lastHeard, &QTableWidget::cellClicked, this, &MainWindow::openDetachedLastHeard);
    layout->addWidget(lastHeardGroup, 2);

    buildAudioRows(layout);

    setCentralWidget(central);
    buildToolBar();
    buildDirectories();
    buildStatusStrip();

    callLabel = new QLabel;
    callLabel->setObjectName(QStringLiteral("callLabel"));
    const QString call = zl::Config::instance().callsign();
    callLabel->setText(QStringLiteral("Call: ") + call);
    statusBar()->addPermanentWidget(callLabel);
    clockLabel = new QLabel;
    clockLabel->setObjectName(QStringLiteral("clock"));
    statusBar()->addPermanentWidget(clockLabel);

    selectMode(zl::Config::instance().defaultMode());
    loadLastHeard();

    clockTimer = new QTimer(this);
    clockTimer->setInterval(1000);
    connect(clockTimer, &QTimer::timeout, this, &MainWindow::tickClock);
    clockTimer->start();
    tickClock();
    connect(&zl::Config::instance(), &zl::Config::configChanged, this, &MainWindow::onConfigChanged);

    // Wide enough for the status bar's groups and a short message beside them.
    int statusWidth = zl::uiScale(320);
    for (const QWidget* part : statusBar()->findChildren<QWidget*>(Qt::FindDirectChildrenOnly))
        statusWidth += part->sizeHint().width();
    resize(size().expandedTo(QSize(statusWidth, 0)));
    const QByteArray geometry = zl::Config::instance().windowGeometry(QStringLiteral("main"));
    if (!geometry.isEmpty())
        restoreGeometry(geometry);
    const QByteArray state = zl::Config::instance().windowState(QStringLiteral("main"));
    if (!state.isEmpty())
        restoreState(state);
    zl::ui::fitToScreen(this);
    applyPttConfig();
}

MainWindow::~MainWindow()
{
    qInfo() << "[shutdown] ~MainWindow begin";
    qApp->removeEventFilter(this);
    // The pages go first, while this window is whole: their clients say goodbye as they stop,
    // and the state changes that causes must not reach a window whose members are gone.
    for (const QString& mode : std::as_const(modes)) {
        BaseModePage* page = pages.take(mode);
        disconnect(page, nullptr, this, nullptr);
        delete page;
    }
}

void MainWindow::buildAudioRows(QVBoxLayout* layout)
{
    // On a short screen microphone and speaker share a line, as do the TX label and PTT.
    QBoxLayout* audioLine = layout;
    if (compact) {
        audioLine = new QHBoxLayout;
        layout->addLayout(audioLine);
    }
    const auto row = [this, audioLine](const QString& name, const QString& tip, QPushButton*& mute, QComboBox*& combo,
                                       QProgressBar*& level, QSlider*& slider) {
        auto* line = new QHBoxLayout;
        auto* label = new QLabel(name);
        label->setMinimumWidth(zl::uiScale(32));
        mute = new QPushButton(QStringLiteral("Mute"));
        mute->setCheckable(true);
        mute->setToolTip(tip);
        mute->setProperty("variant", QStringLiteral("ghost"));
        combo = new QComboBox;
        combo->setMaxVisibleItems(10);
        combo->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
        combo->setMinimumContentsLength(12);
        level = new QProgressBar;
        level->setRange(0, 100);
        level->setValue(0);
        level->setTextVisible(false);
        slider = new QSlider(Qt::Horizontal);
        slider->setRange(0, 100);
        line->addWidget(label);
        line->addWidget(mute);
        line->addWidget(combo, 2);
        line->addWidget(level, 1);
        line->addWidget(slider, 1);
        audioLine->addLayout(line);
        const QString key = name.toLower();
        mute->setObjectName(key + QStringLiteral("Mute"));
        combo->setObjectName(key + QStringLiteral("Combo"));
        level->setObjectName(key + QStringLiteral("Level"));
        slider->setObjectName(key + QStringLiteral("Slider"));
    };
    row(QStringLiteral("MIC"), QStringLiteral("Mute mic (no transmission)"), micMute, micCombo, micLevel, micSlider);
    row(QStringLiteral("SPK"), QStringLiteral("Mute speaker (RX continues, you hear nothing)"), spkMute, spkCombo,
        spkLevel, spkSlider);

    txLabel = new QLabel(QStringLiteral("TX → DMR"));
    txLabel->setObjectName(QStringLiteral("txLabel"));
    txLabel->setAlignment(Qt::AlignCenter);
    QBoxLayout* pttLine = layout;
    if (compact) {
        pttLine = new QHBoxLayout;
        layout->addLayout(pttLine);
    }
    pttLine->addWidget(txLabel);
    pttButton = new QPushButton(QStringLiteral("PTT"));
    pttButton->setObjectName(QStringLiteral("ptt"));
    pttButton->setCheckable(true);
    pttButton->setProperty("helpText", QStringLiteral("Push to talk on the active mode. A key can be bound in the "
                                                      "settings; it never fires while you type in a text field."));
    pttLine->addWidget(pttButton, 1);
    connect(pttButton, &QPushButton::toggled, this, &MainWindow::onPttToggled);
    pttReleaseTimer = new QTimer(this);
    pttReleaseTimer->setSingleShot(true);
    pttReleaseTimer->setInterval(kPttRepeatGapMs);
    connect(pttReleaseTimer, &QTimer::timeout, this, [this] {
        if (pttKbdHold && pttButton->isChecked())
            pttButton->setChecked(false);
    });
    txTimeout = new zl::TxTimeout(this);
    connect(txTimeout, &zl::TxTimeout::expired, this, &MainWindow::endTransmission);
    connect(txTimeout, &zl::TxTimeout::warning, this, [this] {
        statusBar()->showMessage(QStringLiteral("TX time-out in %1 s").arg(zl::TxTimeout::kWarningSeconds), 10000);
        // Two short beeps of 1 kHz, quiet enough not to startle on headphones.
        QByteArray tone(2 * 8000 * 4 / 10, '\0');
        auto* samples = reinterpret_cast<qint16*>(tone.data());
        for (int i = 0; i < tone.size() / 2; ++i)
            samples[i] = (i / 800) % 2 == 0 ? qint16(6000 * std::sin(2 * M_PI * 1000 * i / 8000.0)) : 0;
        zl::audio::AudioMixer::instance().playCue(tone);
    });
    connect(&zl::dmr::DmrPeerManager::instance(), &zl::dmr::DmrPeerManager::changed, this,
            [this] { checkTxLink(QStringLiteral("DMR")); });
    // Quitting while transmitting: the stream ends (terminator, encoder gone) before the
    // peers are stopped on the same signal, which is connected after this one.
    connect(qApp, &QCoreApplication::aboutToQuit, this, [this] {
        if (pttButton->isChecked())
            pttButton->setChecked(false);
    });

    zl::audio::AudioMixer& mixer = zl::audio::AudioMixer::instance();
    audioSaveTimer = new QTimer(this);
    audioSaveTimer->setSingleShot(true);
    audioSaveTimer->setInterval(300);
    connect(audioSaveTimer, &QTimer::timeout, this, [this] { saveModeAudio(true); });
    connect(micCombo, &QComboBox::currentIndexChanged, this, [this] {
        saveModeAudio(false);
        applyMicDevice();
    });
    connect(spkCombo, &QComboBox::currentIndexChanged, this, &MainWindow::onSpkComboChanged);
    connect(micSlider, &QSlider::valueChanged, audioSaveTimer, qOverload<>(&QTimer::start));
    connect(spkSlider, &QSlider::valueChanged, this, [this](int value) {
        zl::audio::AudioMixer::instance().setSpkVolume(value);
        audioSaveTimer->start();
    });
    connect(&mixer, &zl::audio::AudioMixer::micLevelChanged, micLevel, &QProgressBar::setValue);
    connect(&mixer, &zl::audio::AudioMixer::micAvailabilityChanged, this, [this](const QString& reason) {
        if (reason.isEmpty())
            statusBar()->clearMessage();
        else
            statusBar()->showMessage(QStringLiteral("microphone unavailable: %1").arg(reason));
    });
    connect(&mixer, &zl::audio::AudioMixer::spkLevelChanged, spkLevel, &QProgressBar::setValue);
    connect(micMute, &QPushButton::toggled, this, [this](bool on) { onMuteToggled(micMute, on, true); });
    connect(spkMute, &QPushButton::toggled, this, [this](bool on) { onMuteToggled(spkMute, on, false); });
    refreshAudioDevices();
}

void MainWindow::onMuteToggled(QPushButton* button, bool muted, bool mic)
{
    zl::audio::AudioMixer& mixer = zl::audio::AudioMixer::instance();
    if (mic)
        mixer.setMicMuted(muted);
    else
        mixer.setSpkMuted(muted);
    button->setProperty("variant", muted ? QStringLiteral("danger") : QStringLiteral("ghost"));
    button->style()->unpolish(button);
    button->style()->polish(button);
}

void MainWindow::buildToolBar()
{
    QToolBar* bar = addToolBar(QStringLiteral("Main"));
    bar->setObjectName(QStringLiteral("mainToolBar"));
    bar->setMovable(false);
    QAction* settings = bar->addAction(QStringLiteral("⚙ Settings"), this, &MainWindow::openSettings);
    settings->setObjectName(QStringLiteral("settingsAction"));
    settings->setShortcut(QKeySequence(QStringLiteral("Ctrl+,")));
    settings->setToolTip(QStringLiteral("Callsigns, identities, peers, reflectors, audio and hardware (Ctrl+,)."));
    QAction* update = bar->addAction(QStringLiteral("↻ Update DBs"), this, &MainWindow::updateDatabases);
    update->setObjectName(QStringLiteral("updateDbsAction"));
    update->setToolTip(QStringLiteral("Download the host lists and the user and talkgroup databases again."));
    QAction* about = bar->addAction(QStringLiteral("ℹ About"), this, &MainWindow::showAbout);
    about->setToolTip(QStringLiteral("Version, licence and where the log files are."));
    QAction* soundTest = bar->addAction(QStringLiteral("🔊 Sound Test"));
    soundTest->setToolTip(QStringLiteral("Play a tone and record the microphone to check the audio."));
    soundTest->setObjectName(QStringLiteral("soundTestAction"));
    soundTest->setCheckable(true);
    connect(soundTest, &QAction::toggled, this, [this, soundTest](bool on) {
        if (!on) {
            if (soundTestWindow)
                soundTestWindow->close();
            return;
        }
        if (!soundTestWindow) {
            soundTestWindow = new zl::ui::SoundTestWindow(this);
            // Closing the window unchecks the action, whichever way it was closed; quietly, as
            // the window is already on its way out.
            connect(soundTestWindow, &QObject::destroyed, soundTest, [soundTest] {
                const QSignalBlocker blocker(soundTest);
                soundTest->setChecked(false);
            });
            // The test may have opened another microphone; the mode's own comes back.
            connect(soundTestWindow, &QObject::destroyed, this, [this] { applyMicDevice(); });
        }
        soundTestWindow->show();
        soundTestWindow->raise();
        soundTestWindow->activateWindow();
    });
}

void MainWindow::showAbout()
{
    if (aboutBox) {
        aboutBox->raise();
        aboutBox->activateWindow();
        return;
    }
    aboutBox = new QMessageBox(QMessageBox::Information, QStringLiteral("About zephyrlake"),
                               QStringLiteral("<b>zephyrlake</b> %1<br><br>DMR, M17, YSF, NXDN, SvxLink, EchoLink and "
                                              "AllStar from one desktop, with no radio.")
                                   .arg(QLatin1String(zl::kAppVersion)),
                               QMessageBox::Ok, this);
    aboutBox->setAttribute(Qt::WA_DeleteOnClose);
    aboutBox->setModal(false);
    aboutBox->show();
}

void MainWindow::buildStatusStrip()
{
    auto* stretch = new QLabel;
    statusBar()->addWidget(stretch, 1);
    const auto group = [this](const QString& name, QLabel*& dot, QLabel*& text, const char* colour,
                              const QString& initial) {
        auto* box = new QWidget;
        auto* line = new QHBoxLayout(box);
        line->setContentsMargins(4, 0, 4, 0);
        line->setSpacing(4);
        dot = new QLabel(QStringLiteral("●"));
        dot->setStyleSheet(statusDotStyle(colour));
        text = new QLabel(initial);
        line->addWidget(new QLabel(name));
        line->addWidget(dot);
        line->addWidget(text);
        statusBar()->addPermanentWidget(box);
    };
    group(QStringLiteral("AMBE:"), ambeDot, ambeText, "#888", QStringLiteral("probing…"));
    ambeText->setObjectName(QStringLiteral("ambeStatus"));
    zl::hw::Dv3000Pool* pool = zl::hw::Dv3000Pool::instance();
    connect(pool, &zl::hw::Dv3000Pool::changed, this, &MainWindow::updateAmbeStatus);
    connect(pool, &zl::hw::Dv3000Pool::chipDetected, this,
            [this](zl::hw::Dv3000*, const QString& productId, const QString& version, const QString& location) {
                statusBar()->showMessage(QStringLiteral("AMBE chip: %1 v%2 on %3").arg(productId, version, location),
                                         5000);
            });
    pool->rescan();
    updateAmbeStatus();

    QLabel* codecDot = nullptr;
    QLabel* codecText = nullptr;
    group(QStringLiteral("Codec2:"), codecDot, codecText, "#39c34a", QStringLiteral("ok"));

    group(QStringLiteral("DMR:"), dmrDot, dmrText, "#888", QStringLiteral("no peers"));
    dmrText->setObjectName(QStringLiteral("dmrStatus"));
    zl::dmr::DmrPeerManager& peers = zl::dmr::DmrPeerManager::instance();
    connect(&peers, &zl::dmr::DmrPeerManager::changed, this, &MainWindow::updateDmrStatus);
    connect(&peers, &zl::dmr::DmrPeerManager::callHeard, this, &MainWindow::onCallHeard);
    connect(&peers, &zl::dmr::DmrPeerManager::callEnded, this, &MainWindow::onCallEnded);
    // Made before the window's own configChanged connection, so the peers are current
    // when the pages reload.
    connect(&zl::Config::instance(), &zl::Config::configChanged, &peers, &zl::dmr::DmrPeerManager::reload);
    peers.reload();
    updateDmrStatus();
}

void MainWindow::updateAmbeStatus()
{
    const zl::hw::Dv3000Pool* pool = zl::hw::Dv3000Pool::instance();
    const int ready = pool->readyCount();
    const int ports = pool->chipCount();
    if (ready > 0) {
        ambeDot->setStyleSheet(QStringLiteral("color:#00c864; font-size:14px;"));
        ambeText->setText(
            QStringLiteral("%1 / %2 chip%3 ready").arg(ready).arg(ports).arg(ports >= 2 ? QStringLiteral("s") : ""));
    } else if (ports < 1) {
        ambeDot->setStyleSheet(QStringLiteral("color:#777; font-size:14px;"));
        ambeText->setText(QStringLiteral("none"));
    } else {
        ambeDot->setStyleSheet(QStringLiteral("color:#e0b020; font-size:14px;"));
        ambeText->setText(QStringLiteral("probing %1 port%2…").arg(ports).arg(ports == 1 ? "" : QStringLiteral("s")));
    }
}

void MainWindow::updateDmrStatus()
{
    const zl::dmr::DmrPeerManager& peers = zl::dmr::DmrPeerManager::instance();
    const int total = int(peers.peerTable().size());
    const int up = peers.connectedCount();
    if (total == 0) {
        dmrDot->setStyleSheet(QStringLiteral("color:#888; font-size:14px;"));
        dmrText->setText(QStringLiteral("no peers"));
        return;
    }
    dmrDot->setStyleSheet(up == total ? QStringLiteral("color:#39c34a; font-size:14px;")
                                      : QStringLiteral("color:#e0b020; font-size:14px;"));
    dmrText->setText(
        QStringLiteral("%1/%2 peer%3 connected").arg(up).arg(total).arg(total >= 2 ? QStringLiteral("s") : ""));
}

void MainWindow::openSettings()
{
    SettingsDialog::showSingleton(this);
}

void MainWindow::buildDirectories()
{
    hostListSync = new zl::HostListSync(this);
    userDb = new zl::UserDb(this);
    repeaterDb = new zl::RepeaterDb(this);
    tgListSync = new zl::TgListSync(this);
    // Reading the cache files takes a few tens of milliseconds for a full user list; the
    // downloads run in the background and report on the status bar.
    userDb->loadFromDisk();
    repeaterDb->loadFromDisk();

    const auto tell = [this](const QString& text, int ms) { statusBar()->showMessage(text, ms); };
    connect(hostListSync, &zl::HostListSync::modeUpdated, this, [this, tell](const QString& mode, int entries) {
        tell(QStringLiteral("↻ %1: %2 entries").arg(mode).arg(entries), 4000);
        refreshCard(mode);
    });
    connect(hostListSync, &zl::HostListSync::modeFailed, this, [tell](const QString& mode, const QString& reason) {
        tell(QStringLiteral("↻ %1 FAILED: %2").arg(mode, reason), 6000);
    });
    connect(userDb, &zl::UserDb::refreshed, this,
            [tell](int users) { tell(QStringLiteral("↻ DMR-ID DB: %1 users").arg(users), 4000); });
    connect(userDb, &zl::UserDb::failed, this,
            [tell](const QString& reason) { tell(QStringLiteral("↻ DMR-ID DB FAILED: ") + reason, 6000); });
    connect(repeaterDb, &zl::RepeaterDb::refreshed, this, [tell](const QString& mode, int repeaters) {
        tell(QStringLiteral("↻ %1 repeaters: %2").arg(mode).arg(repeaters), 4000);
    });
    connect(repeaterDb, &zl::RepeaterDb::failed, this, [tell](const QString& mode, const QString& reason) {
        tell(QStringLiteral("↻ %1 repeaters FAILED: %2").arg(mode, reason), 6000);
    });
    connect(tgListSync, &zl::TgListSync::networkUpdated, this, [tell](const QString& network, int entries) {
        tell(QStringLiteral("↻ %1 TGs: %2 entries").arg(network).arg(entries), 4000);
    });
    connect(tgListSync, &zl::TgListSync::networkFailed, this, [tell](const QString& network, const QString& reason) {
        tell(QStringLiteral("↻ %1 TGs FAILED: %2").arg(network, reason), 6000);
    });
    refreshDirectories(false);
}

void MainWindow::refreshDirectories(bool all)
{
    // Host lists and talkgroups change daily, the user and repeater data much more slowly.
    hostListSync->syncIfOlder(all ? 0 : 24);
    userDb->refreshIfOlder(all ? 0 : 168);
    repeaterDb->refreshIfOlder(all ? 0 : 168);
    tgListSync->syncIfOlder(all ? 0 : 24);
}

void MainWindow::updateDatabases()
{
    statusBar()->showMessage(QStringLiteral("↻ Updating all databases — hold on..."), 8000);
    refreshDirectories(true);
    if (auto* svx = qobject_cast<SvxLinkModePage*>(pages.value(QStringLiteral("SvxLink"))))
        svx->refreshNodes();
    if (auto* echolink = qobject_cast<EchoLinkModePage*>(pages.value(QStringLiteral("Echolink"))))
        echolink->refreshDirectory();
}

void MainWindow::openDetachedLastHeard()
{
    LastHeardWindow::instance(this);
    for (int row = lastHeard->rowCount() - 1; row >= 0; --row)
        passToLargeView(row);
}

void MainWindow::passToLargeView(int row)
{
    auto* large = findChild<LastHeardWindow*>();
    if (!large)
        return;
    QStringList cells;
    for (int column = 0; column < int(kLastHeardKeys.size()); ++column) {
        const QTableWidgetItem* item = lastHeard->item(row, column);
        cells << (item ? item->text() : QString());
    }
    large->appendRow(cells.at(0), cells.at(1), cells.at(2), cells.at(3), cells.at(4), cells.at(5), cells.at(6),
                     cells.at(7), cells.at(8));
}

void MainWindow::selectMode(const QString& mode)
{
    BaseModePage* page = pages.value(mode);
    if (!page)
        return;
    activeMode = mode;
    stack->setCurrentWidget(page);
    cards.value(mode)->setChecked(true);
    lastHeardGroup->setVisible(!isMessageMode(mode));
    updateTxLabel();
    if (isMessageMode(mode)) {
        pttButton->setEnabled(false);
        if (pttButton->isChecked())
            pttButton->setChecked(false);
    } else {
        pttButton->setEnabled(true);
    }
    zl::audio::AudioMixer::instance().applyChains(page->modeKey(), page->activeRowKey());
    loadModeAudio(page->modeKey());
}

void MainWindow::refreshCard(const QString& mode)
{
    QPushButton* card = cards.value(mode);
    BaseModePage* page = pages.value(mode);
    if (!card || !page)
        return;
    auto* label = card->findChild<QLabel*>(QStringLiteral("cardLabel"));
    if (!label) {
        auto* cardLayout = new QVBoxLayout(card);
        cardLayout->setContentsMargins(8, 4, 8, 4);
        label = new QLabel;
        label->setObjectName(QStringLiteral("cardLabel"));
        label->setTextFormat(Qt::RichText);
        label->setAttribute(Qt::WA_TransparentForMouseEvents);
        cardLayout->addWidget(label);
    }
    QString colour = QStringLiteral("#777");
    QString word = QStringLiteral("off");
    if (!page->hasNetworkClient()) {
        word = QStringLiteral("no client");
    } else if (page->isModeEnabled()) {
        const bool up = page->isModeConnected();
        colour = up ? QStringLiteral("#39c34a") : QStringLiteral("#e0b020");
        word = up ? QStringLiteral("conn") : QStringLiteral("wait");
    }
    const QString server = page->serverText();
    const QString target = page->targetText();
    // Long server names are cut, so that one card does not push the others to a new line.
    const auto cut = [](const QString& text) { return text.size() > 24 ? text.left(23) + QStringLiteral("…") : text; };
    const QString serverLine = server.isEmpty() ? QStringLiteral("—") : cut(server);
    const QString targetLine = target.isEmpty() ? word : cut(target);
    if (compact) {
        // One line; what the second and third lines would say is in the tool tip.
        label->setText(QStringLiteral("<span style='font-size:10pt;font-weight:700;color:#00ffff;'>%1</span> <span "
                                      "style='color:%2;font-size:11pt;'>●</span>")
                           .arg(mode, colour));
        card->setToolTip(QStringLiteral("%1 — %2").arg(serverLine, targetLine));
    } else {
        label->setText(QStringLiteral("<div style='font-size:13pt;font-weight:700;color:#00ffff;'>%1 <span "
                                      "style='color:%2;font-size:14pt;'>●</span></div><div "
                                      "style='color:rgba(0,255,255,0.75);font-size:9pt;'>%3</div><div "
                                      "style='color:rgba(0,255,255,0.55);font-size:9pt;'>%4</div>")
                           .arg(mode, colour, serverLine, targetLine));
    }
    // The card grows with its text: the point sizes above do not follow the window's scale.
    const QSize least = compact ? QSize(zl::uiScale(100), 0) : QSize(zl::uiScale(150), zl::uiScale(70));
    card->setMinimumSize(least.expandedTo(label->sizeHint() + QSize(16, 8)));
}

void MainWindow::onConfigChanged()
{
    BaseModePage* page = pages.value(activeMode);
    QString call = zl::Config::instance().callsign();
    if (page) {
        const zl::Identity identity = zl::resolveIdentity(page->modeKey());
        if (!identity.callsign.isEmpty())
            call = identity.callsign;
    }
    callLabel->setText(QStringLiteral("Call: ") + call);
    for (BaseModePage* each : std::as_const(pages))
        each->reloadConfig();
    if (page)
        zl::audio::AudioMixer::instance().applyChains(page->modeKey(), page->activeRowKey());
    updateTxLabel();
    applyPttConfig();
    for (const QString& mode : std::as_const(modes))
        refreshCard(mode);
}

void MainWindow::tickClock()
{
    clockLabel->setText(QDateTime::currentDateTime().toString(QStringLiteral("HH:mm:ss")));
}

void MainWindow::applyPttConfig()
{
    const QJsonObject general = zl::Config::instance().section(QStringLiteral("general"));
    pttKey = general.value(QStringLiteral("ptt_key")).toInt(0);
    pttKbdHold = general.value(QStringLiteral("ptt_kbd_hold")).toBool(true);
    pttMouseHold = general.value(QStringLiteral("ptt_mouse_hold")).toBool(false);
    pttButton->removeEventFilter(this);
    pttButton->installEventFilter(this);
    qApp->removeEventFilter(this);
    if (pttKey != 0)
        qApp->installEventFilter(this);
}

bool MainWindow::eventFilter(QObject* object, QEvent* event)
{
    const QEvent::Type type = event->type();
    if (object == pttButton && pttMouseHold &&
        (type == QEvent::MouseButtonPress || type == QEvent::MouseButtonRelease)) {
        if (static_cast<QMouseEvent*>(event)->button() == Qt::LeftButton) {
            if (type == QEvent::MouseButtonPress && pttButton->isEnabled()) {
                if (!pttButton->isChecked())
                    pttButton->setChecked(true);
                return true;
            }
            if (type == QEvent::MouseButtonRelease) {
                if (pttButton->isChecked())
                    pttButton->setChecked(false);
                return true;
            }
        }
    }
    if (pttKey != 0 && (type == QEvent::KeyPress || type == QEvent::KeyRelease)) {
        // Typing must never transmit.
        if (QWidget* focus = QApplication::focusWidget()) {
            for (const char* typing : {"QLineEdit", "QAbstractSpinBox", "QTextEdit", "QPlainTextEdit"}) {
                if (focus->inherits(typing))
                    return QMainWindow::eventFilter(object, event);
            }
        }
        auto* key = static_cast<QKeyEvent*>(event);
        if (key->key() == pttKey && !key->isAutoRepeat() && pttButton && pttButton->isEnabled()) {
            // Keyboard auto-repeat arrives as release and press pairs that are not always flagged
            // as such: a release counts only when no press of the key follows within 50 ms.
            if (type == QEvent::KeyRelease) {
                pttReleaseTimer->start();
                return true;
            }
            const bool repeated = pttReleaseTimer->isActive();
            pttReleaseTimer->stop();
            if (repeated)
                return true;
            if (pttKbdHold)
                pttButton->setChecked(true);
            else
                pttButton->toggle();
            return true;
        }
    }
    return QMainWindow::eventFilter(object, event);
}

void MainWindow::updateTxLabel()
{
    const QString mode = pttActive ? txMode : activeMode;
    QString details;
    QString call;
    if (mode == QLatin1String("DMR")) {
        const std::optional<zl::dmr::Peer> peer = findPeer(pttActive ? txPeerLabel : zl::dmr::defaultPeerLabel());
        if (peer) {
            details = QStringLiteral(" / ") + peer->label;
            if (peer->duplex) {
                const int slot = pttActive ? txSlot : (peer->priority_slot != 0 ? peer->priority_slot : 2);
                details += QStringLiteral(" TS%1").arg(slot);
            }
            call = zl::dmr::peerCallsign(*peer);
        }
    }
    const QString head = call.isEmpty() ? mode : call + QLatin1Char(' ') + mode;
    txLabel->setText(QStringLiteral("TX ") + head + QStringLiteral("→ ") + details);
}

QString MainWindow::pttBlockReason() const
{
    BaseModePage* page = pages.value(activeMode);
    if (!page || isMessageMode(activeMode))
        return QStringLiteral("PTT: %1 carries no voice").arg(activeMode);
    if (!page->hasNetworkClient())
        return QStringLiteral("PTT: %1 has no network client").arg(activeMode);
    // Without a microphone a transmission would carry nothing but silence.
    const QString micProblem = zl::audio::AudioMixer::instance().micUnavailableReason();
    if (!micProblem.isEmpty())
        return QStringLiteral("PTT: microphone unavailable: %1").arg(micProblem);
    if (activeMode != QLatin1String("DMR")) {
        if (!page->isModeConnected() || page->activeRowKey().isEmpty())
            return QStringLiteral("PTT: no %1 link to talk to — connect a row first").arg(activeMode);
        return {};
    }
    const QString label = zl::dmr::defaultPeerLabel();
    const std::optional<zl::dmr::Peer> peer = findPeer(label);
    if (!peer)
        return QStringLiteral("PTT: no default DMR peer — add one or click a peer row");
    const zl::dmr::DmrPeerClient* client = zl::dmr::DmrPeerManager::instance().clientFor(label);
    if (!client || client->state() != zl::dmr::DmrPeerClient::Running)
        return QStringLiteral("PTT: DMR peer %1 is not connected").arg(label);
    if (zl::dmr::dmrId(*peer) == 0)
        return QStringLiteral("PTT: DMR peer %1 has no DMR-ID").arg(label);
    if (peer->active_tg == 0)
        return QStringLiteral("PTT: DMR peer %1 has no talkgroup").arg(label);
    return {};
}

void MainWindow::endTransmission(const QString& why)
{
    if (!pttButton->isChecked())
        return;
    qInfo().noquote() << "MainWindow:" << why;
    pttButton->setChecked(false);
    statusBar()->showMessage(why, 15000);
}

void MainWindow::checkTxLink(const QString& mode)
{
    if (!pttActive || mode != txMode)
        return;
    // Link news comes from inside the clients' and the manager's own handlers; the transmission
    // ends once they have returned, not under their feet.
    QTimer::singleShot(0, this, [this, mode] { checkTxLinkNow(mode); });
}

void MainWindow::checkTxLinkNow(const QString& mode)
{
    if (!pttActive || mode != txMode)
        return;
    if (mode == QLatin1String("DMR")) {
        for (const zl::dmr::DmrPeerManager::PeerRow& row : zl::dmr::DmrPeerManager::instance().peerTable()) {
            if (row.label == txPeerLabel && row.state == zl::dmr::DmrPeerClient::Running)
                return;
        }
        endTransmission(QStringLiteral("TX ended: DMR peer %1 is no longer connected").arg(txPeerLabel));
        return;
    }
    if (BaseModePage* page = pages.value(mode); page && !page->isModeConnected())
        endTransmission(QStringLiteral("TX ended: %1 is no longer connected").arg(mode));
}

void MainWindow::onPttToggled(bool on)
{
    if (on && !pttActive) {
        const QString reason = pttBlockReason();
        if (!reason.isEmpty()) {
            qInfo().noquote() << "MainWindow:" << reason;
            statusBar()->showMessage(reason, 8000);
            const QSignalBlocker block(pttButton);
            pttButton->setChecked(false);
            return;
        }
    }
    if (on == pttActive)
        return;
    zl::audio::AudioMixer& mixer = zl::audio::AudioMixer::instance();
    mixer.setTxHalfDuplex(on);
    for (QWidget* w : std::initializer_list<QWidget*>{micCombo, spkCombo, micSlider, spkSlider})
        w->setEnabled(!on);

    pttActive = on;
    if (on)
        txTimeout->start();
    else
        txTimeout->stop();
    txPeerLabel.clear();
    txSlot = 0;
    txMode = on ? activeMode : QString();
    if (on && txMode == QLatin1String("DMR")) {
        txPeerLabel = zl::dmr::defaultPeerLabel();
        if (const std::optional<zl::dmr::Peer> peer = findPeer(txPeerLabel))
            txSlot = peer->duplex && peer->priority_slot != 0 ? peer->priority_slot : 2;
    }
    updateTxLabel();

    if (BaseModePage* page = pages.value(activeMode)) {
        page->setPttActive(on);
        emit page->statusTextChanged(on ? QStringLiteral("TX") : QStringLiteral("RX"));
    }
    mixer.setPttActive(on);

    if (on && txMode == QLatin1String("DMR") && !dmrEncoder)
        startDmrTransmission();
    if (!on) {
        stopDmrTransmission();
        if (pendingConfigSave) {
            pendingConfigSave = false;
            zl::Config::instance().save();
        }
        closeTxRow();
        return;
    }
    if (txRow < 0)
        openTxRow();
}

void MainWindow::startDmrTransmission()
{
    const quint8 slot = quint8(txSlot != 0 ? txSlot : 2);
    zl::dmr::DmrPeerManager& peers = zl::dmr::DmrPeerManager::instance();
    zl::dmr::DmrPeerClient* client = peers.clientFor(txPeerLabel);
    quint32 src = 0;
    quint32 dst = 0;
    bool privateCall = false;
    if (const std::optional<zl::dmr::Peer> peer = findPeer(txPeerLabel)) {
        dst = peer->active_tg;
        privateCall = peer->private_call;
        src = zl::dmr::dmrId(*peer);
    }
    if (!client || src == 0 || dst == 0) {
        qWarning().noquote() << "DMR-TX: cannot start — client=" << (client ? "ok" : "null") << "srcDmrId=" << src
                             << "dstTg=" << dst;
        return;
    }
    dmrEncoder = new zl::dmr::DmrVoiceEncoder(client);
    dmrEncoder->moveToThread(zl::hw::Dv3000Pool::instance()->workerThread());
    dmrMicConnection = connect(&zl::audio::AudioMixer::instance(), &zl::audio::AudioMixer::micPcmReady, dmrEncoder,
                               &zl::dmr::DmrVoiceEncoder::feedPcm, Qt::QueuedConnection);
    zl::dmr::DmrVoiceEncoder* encoder = dmrEncoder;
    zl::postTo(encoder, [encoder, slot, src, dst, privateCall] { encoder->startStream(slot, src, dst, privateCall); });
    QStringList connected;
    for (const zl::dmr::DmrPeerManager::PeerRow& row : peers.peerTable()) {
        if (row.stateText == QLatin1String("connected"))
            connected << row.label;
    }
    qInfo().noquote() << "DMR-TX started: src=" << src << "dst=" << dst << "slot=" << int(slot) << "via" << txPeerLabel
                      << "| connected peers:" << connected.join(QStringLiteral(", "))
                      << QStringLiteral("(TX packets go ONLY to '%1')").arg(txPeerLabel);
}

void MainWindow::stopDmrTransmission()
{
    if (!dmrEncoder)
        return;
    disconnect(dmrMicConnection);
    // The terminator goes out on the worker after the speech already queued there; nothing
    // here waits for it.
    zl::dmr::DmrVoiceEncoder* encoder = dmrEncoder;
    zl::postTo(encoder, [encoder] {
        encoder->stopStream();
        encoder->deleteLater();
    });
    dmrEncoder = nullptr;
}

void MainWindow::onCallHeard(const QString&, const QString& networkName, uint srcId, uint dstId, uchar slot,
                             uint streamId, bool privateCall)
{
    const QString call = dmrCallsign(srcId);
    const QString target = privateCall ? QStringLiteral("PC %1 TS%2").arg(dmrCallsign(dstId)).arg(slot)
                                       : QStringLiteral("TG %1 TS%2").arg(dstId).arg(slot);
    const QString time = QDateTime::currentDateTime().toString(QStringLiteral("HH:mm:ss"));
    insertRow({time, call, QString(), QStringLiteral("DMR"), networkName, target, QString(), QString(), QString()},
              kRxBackground);
    // The name goes with the callsign where the pointer rests, so that the column stays one
    // of callsigns (the large view searches it).
    const QString name = userDb ? userDb->nameOf(int(srcId)) : QString();
    lastHeard->item(0, 1)->setToolTip(name.isEmpty() ? QStringLiteral("DMR ID %1").arg(srcId)
                                                     : QStringLiteral("%1 — DMR ID %2").arg(name).arg(srcId));
    liveRows.insert(streamId, 0);
    // Our own transmission can come back through another peer on the same master: the open
    // TX row moves down with the others, so that its end finds it.
    if (txRow >= 0)
        ++txRow;
    trimRows();
    saveLastHeard();
    passToLargeView(0);
}

QString MainWindow::dmrCallsign(uint id) const
{
    const QString call = userDb ? userDb->callsignOf(int(id)) : QString();
    return call.isEmpty() ? QString::number(id) : call;
}

void MainWindow::onCallEnded(const QString&, uint streamId, qlonglong durationMs)
{
    const auto it = liveRows.constFind(streamId);
    if (it == liveRows.constEnd())
        return;
    const int row = it.value();
    liveRows.erase(it);
    if (row < 0 || row >= lastHeard->rowCount())
        return;
    clearRowColour(row);
    lastHeard->item(row, kDurColumn)->setText(formatDuration(durationMs));
    saveLastHeard();
}

void MainWindow::openTxRow()
{
    QString call = zl::Config::instance().callsign();
    QString server;
    QString target;
    if (txMode == QLatin1String("DMR")) {
        if (const std::optional<zl::dmr::Peer> peer = findPeer(txPeerLabel)) {
            server = peer->network;
            call = zl::dmr::peerCallsign(*peer);
            if (peer->active_tg != 0)
                target = QStringLiteral("%1 %2 TS%3")
                             .arg(peer->private_call ? QStringLiteral("PC") : QStringLiteral("TG"))
                             .arg(peer->active_tg)
                             .arg(txSlot);
            else
                target = QStringLiteral("TS%1").arg(txSlot);
        } else {
            target = QStringLiteral("TS%1").arg(txSlot);
        }
    }
    if (target.isEmpty())
        target = QStringLiteral("(TX)");
    const QString time = QDateTime::currentDateTime().toString(QStringLiteral("HH:mm:ss"));
    insertRow({time, call, QString(), activeMode, server, target, QString(), QString(), QString()}, kTxBackground);
    txRow = 0;
    txStartMs = QDateTime::currentMSecsSinceEpoch();
    trimRows();
    passToLargeView(0);
}

void MainWindow::closeTxRow()
{
    if (txRow < 0)
        return;
    if (txRow >= lastHeard->rowCount()) {
        txRow = -1;
        txStartMs = 0;
        return;
    }
    clearRowColour(txRow);
    lastHeard->item(txRow, kDurColumn)->setText(formatDuration(QDateTime::currentMSecsSinceEpoch() - txStartMs));
    saveLastHeard();
    txRow = -1;
    txStartMs = 0;
}

QString MainWindow::formatDuration(qint64 ms)
{
    if (ms < 60000)
        return QString::asprintf("%.1f s", double(ms) / 1000.0);
    const qint64 seconds = ms / 1000;
    return QString::asprintf("%lld:%02lld", seconds / 60, seconds % 60);
}

void MainWindow::insertRow(const QStringList& values, const QColor& background)
{
    lastHeard->insertRow(0);
    for (int column = 0; column < kLastHeardKeys.size(); ++column) {
        auto* item = new QTableWidgetItem(values.value(column));
        if (background.isValid())
            item->setBackground(background);
        lastHeard->setItem(0, column, item);
    }
    for (int& row : liveRows)
        ++row;
}

void MainWindow::trimRows()
{
    while (lastHeard->rowCount() > kMaxLastHeard)
        lastHeard->removeRow(lastHeard->rowCount() - 1);
}

void MainWindow::clearRowColour(int row)
{
    for (int column = 0; column < lastHeard->columnCount(); ++column) {
        if (QTableWidgetItem* item = lastHeard->item(row, column))
            item->setBackground(QBrush());
    }
}

void MainWindow::writePageLine(const QStringList& values)
{
    // Rows of DMR calls in progress below are not renumbered on this path; their end
    // checks only that the row still exists.
    QStringList row = values;
    if (row.size() > 1)
        row[1] = zl::printableCallsign(row.at(1));
    lastHeard->insertRow(0);
    for (int column = 0; column < row.size(); ++column)
        lastHeard->setItem(0, column, new QTableWidgetItem(row.at(column)));
    trimRows();
    saveLastHeard();
    passToLargeView(0);
}

void MainWindow::saveLastHeard()
{
    QJsonArray entries;
    for (int row = 0; row < lastHeard->rowCount(); ++row) {
        QJsonObject entry;
        for (int column = 0; column < kLastHeardKeys.size(); ++column) {
            const QTableWidgetItem* item = lastHeard->item(row, column);
            entry.insert(kLastHeardKeys.at(column), item ? item->text() : QString());
        }
        entries.append(entry);
    }
    zl::Config& config = zl::Config::instance();
    QJsonObject section = config.section(QStringLiteral("lastheard"));
    section.insert(QStringLiteral("entries"), entries);
    config.setSection(QStringLiteral("lastheard"), section);
    config.save();
}

void MainWindow::loadLastHeard()
{
    lastHeard->setRowCount(0);
    const QList<QJsonObject> entries = zl::configObjects(
        zl::Config::instance().section(QStringLiteral("lastheard")).value(QStringLiteral("entries")).toArray(),
        QStringLiteral("lastheard.entries"));
    for (qsizetype i = 0; i < entries.size() && i < kMaxLastHeard; ++i) {
        const QJsonObject& entry = entries.at(i);
        const int row = lastHeard->rowCount();
        lastHeard->insertRow(row);
        for (int column = 0; column < kLastHeardKeys.size(); ++column)
            lastHeard->setItem(row, column, new QTableWidgetItem(entry.value(kLastHeardKeys.at(column)).toString()));
    }
}

void MainWindow::refreshAudioDevices()
{
    const QSignalBlocker b1(micCombo), b2(spkCombo);
    zl::ui::fillMicCombo(micCombo, QStringLiteral("(default)"));
    zl::ui::fillSpkCombo(spkCombo, QStringLiteral("(default)"));
}

void MainWindow::onSpkComboChanged()
{
    saveModeAudio(false);
    const QString data = spkCombo->currentData().toString();
    QString card, profile;
    if (zl::ui::switchEntry(data, &card, &profile))
        return;
    const QString device =
        data.isEmpty() ? zl::Config::instance().section(QStringLiteral("audio")).value("default_spk_device").toString()
                       : data;
    zl::audio::AudioMixer::instance().setSpkDevice(device);
}

void MainWindow::applyMicDevice()
{
    QString device = micCombo->currentData().toString();
    if (device.isEmpty())
        device = zl::Config::instance().section(QStringLiteral("audio")).value("default_mic_device").toString();
    zl::audio::AudioMixer::instance().setMicDevice(device);
}

void MainWindow::loadModeAudio(const QString& modeKey)
{
    zl::Config& config = zl::Config::instance();
    const QJsonObject defaults = config.section(QStringLiteral("audio"));
    const QJsonObject audio = config.section(modeKey).value(QStringLiteral("audio")).toObject();
    const QString micDevice = audio.value(QStringLiteral("mic_device")).toString();
    const QString spkDevice = audio.value(QStringLiteral("spk_device")).toString();
    const int micVolume = audio.value(QStringLiteral("mic_volume"))
                              .toInt(defaults.value(QStringLiteral("default_mic_volume")).toInt(100));
    const int spkVolume =
        audio.value(QStringLiteral("spk_volume")).toInt(defaults.value(QStringLiteral("default_spk_volume")).toInt(80));

    const QSignalBlocker b1(micCombo), b2(spkCombo), b3(micSlider), b4(spkSlider);
    const auto pick = [](QComboBox* combo, const QString& device) {
        const int at = device.isEmpty() ? -1 : combo->findData(device, Qt::UserRole, Qt::MatchCaseSensitive);
        combo->setCurrentIndex(at >= 0 ? at : 0);
    };
    pick(micCombo, micDevice);
    pick(spkCombo, spkDevice);
    micSlider->setValue(micVolume);
    spkSlider->setValue(spkVolume);
    zl::audio::AudioMixer& mixer = zl::audio::AudioMixer::instance();
    mixer.setSpkVolume(spkVolume);
    QString spk = spkDevice.isEmpty() ? defaults.value(QStringLiteral("default_spk_device")).toString() : spkDevice;
    if (spk.startsWith(QLatin1String("switch:")))
        spk.clear();
    mixer.setSpkDevice(spk);
    applyMicDevice();
}

void MainWindow::saveModeAudio(bool silent)
{
    BaseModePage* page = pages.value(activeMode);
    if (!page)
        return;
    // A profile entry asks for the sound card's other output; once the sound server has made
    // its sinks, the newest device is taken.
    QString card, profile;
    if (zl::ui::switchEntry(spkCombo->currentData().toString(), &card, &profile)) {
        zl::ui::switchCardProfile(card, profile);
        QTimer::singleShot(250, this, [this] {
            refreshAudioDevices();
            {
                const QSignalBlocker blocker(spkCombo);
                zl::ui::pickLastDevice(spkCombo);
            }
            onSpkComboChanged();
        });
        return;
    }
    zl::Config& config = zl::Config::instance();
    QJsonObject section = config.section(page->modeKey());
    QJsonObject audio = section.value(QStringLiteral("audio")).toObject();
    audio.insert(QStringLiteral("mic_device"), micCombo->currentData().toString());
    audio.insert(QStringLiteral("spk_device"), spkCombo->currentData().toString());
    audio.insert(QStringLiteral("mic_volume"), micSlider->value());
    audio.insert(QStringLiteral("spk_volume"), spkSlider->value());
    section.insert(QStringLiteral("audio"), audio);
    if (silent)
        config.setSectionSilent(page->modeKey(), section);
    else
        config.setSection(page->modeKey(), section);
    // Nothing is written to disk while transmitting: a slow disk must not stall the audio.
    if (pttButton->isChecked())
        pendingConfigSave = true;
    else
        config.save();
}

void MainWindow::closeEvent(QCloseEvent* event)
{
    // Unsaved settings are offered for saving first; a Cancel there keeps the program running.
    if (auto* settings = findChild<SettingsDialog*>(); settings && settings->isVisible()) {
        settings->raise();
        settings->close();
        if (settings->isVisible()) {
            event->ignore();
            return;
        }
    }
    zl::Config& config = zl::Config::instance();
    config.setWindowGeometry(QStringLiteral("main"), saveGeometry());
    config.setWindowState(QStringLiteral("main"), saveState());
    QMainWindow::closeEvent(event);
}
