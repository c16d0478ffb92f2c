#include "ui/AudioChainTab.h"

#include "app/Config.h"
#include "audio/LadspaHost.h"
#include "ui/AudioChainEditor.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFormLayout>
#include <QJsonObject>
#include <QLabel>
#include <QLineEdit>
#include <QTabWidget>
#include <QVBoxLayout>

using zl::audio::loadChainConfig;
using zl::audio::parseChain;

namespace {

const QString kAudio = QStringLiteral("audio");
const QString kPeerAudio = QStringLiteral("peer_audio");
const QString kChainOwn = QStringLiteral("chain_own");
const QString kTx = QStringLiteral("chain_tx");
const QString kRx = QStringLiteral("chain_rx");

// The modes that carry speech, by name and key.
const QList<QPair<QString, QString>> kVoiceModes = {
    {"AllStar", "allstar"}, {"DMR", "dmr"},         {"Echolink", "echolink"}, {"M17", "m17"},
    {"NXDN", "nxdn"},       {"SvxLink", "svxlink"}, {"YSF", "ysf"},
};

QString scopeKey(const QString& mode, const QString& peer)
{
    return mode + QChar(0x1F) + peer;
}

// The object that holds a place's own chains, read from the configuration.
QJsonObject holderOf(const QString& mode, const QString& peer)
{
    const QJsonObject section = zl::Config::instance().section(mode);
    if (peer.isEmpty())
        return section.value(kAudio).toObject();
    return section.value(kPeerAudio).toObject().value(peer).toObject();
}

} // namespace

AudioChainTab::AudioChainTab(QWidget* parent)
    : QWidget(parent), modeCombo(new QComboBox), peerCombo(new QComboBox),
      ownCheck(new QCheckBox(QStringLiteral("Own settings here"))), txEditor(new AudioChainEditor),
      rxEditor(new AudioChainEditor)
{
    modeCombo->setObjectName(QStringLiteral("chainMode"));
    peerCombo->setObjectName(QStringLiteral("chainPeer"));
    ownCheck->setObjectName(QStringLiteral("chainOwn"));
    txEditor->setObjectName(QStringLiteral("txChain"));
    rxEditor->setObjectName(QStringLiteral("rxChain"));
    modeCombo->addItem(QStringLiteral("All modes (default)"), QString());
    for (const auto& [name, key] : kVoiceModes)
        modeCombo->addItem(name, key);
    peerCombo->setEditable(true);
    peerCombo->setInsertPolicy(QComboBox::NoInsert);
    peerCombo->lineEdit()->setPlaceholderText(QStringLiteral("the whole mode, or a peer or reflector"));
    peerCombo->setToolTip(QStringLiteral("A peer, reflector or node with settings of its own: the key its row "
                                         "has on the mode's page, such as \"M17-XOR C\"."));

    auto* scope = new QFormLayout;
    scope->addRow(QStringLiteral("Mode"), modeCombo);
    scope->addRow(QStringLiteral("Peer"), peerCombo);
    scope->addRow(ownCheck);
    auto* directions = new QTabWidget;
    directions->addTab(txEditor, QStringLiteral("Transmit (microphone)"));
    directions->addTab(rxEditor, QStringLiteral("Receive (speaker)"));
    auto* note = new QLabel(QStringLiteral("Settings fall back from a peer to its mode to all modes. Plug-ins run at "
                                           "8 kHz, mono; a stereo plug-in takes its first input and output."));
    note->setWordWrap(true);
    auto* layout = new QVBoxLayout(this);
    layout->addLayout(scope);
    layout->addWidget(note);
    layout->addWidget(directions);

    const auto dirty = [this] {
        if (loading)
            return;
        keepEdits();
        emit dirtied();
    };
    connect(txEditor, &AudioChainEditor::changed, this, dirty);
    connect(rxEditor, &AudioChainEditor::changed, this, dirty);
    connect(ownCheck, &QCheckBox::toggled, this, dirty);
    connect(modeCombo, &QComboBox::currentIndexChanged, this, [this] {
        fillPeers();
        onScopeChanged();
    });
    connect(peerCombo, &QComboBox::currentTextChanged, this, &AudioChainTab::onScopeChanged);
    fillPeers();
    onScopeChanged();
}

void AudioChainTab::showEvent(QShowEvent* event)
{
    // Listing opens every plug-in library: done when the tab is first seen, not with the dialog.
    if (!scanned) {
        scanned = true;
        const QList<zl::audio::LadspaPluginInfo> catalogue = zl::audio::LadspaHost::scanPlugins();
        const bool wasLoading = std::exchange(loading, true);
        txEditor->setCatalogue(catalogue);
        rxEditor->setCatalogue(catalogue);
        loading = wasLoading;
    }
    QWidget::showEvent(event);
}

void AudioChainTab::fillPeers()
{
    const QSignalBlocker blocker(peerCombo);
    peerCombo->clear();
    const QString key = modeCombo->currentData().toString();
    peerCombo->setEnabled(!key.isEmpty());
    peerCombo->addItem(QString());
    if (!key.isEmpty())
        peerCombo->addItems(zl::Config::instance().section(key).value(kPeerAudio).toObject().keys());
    peerCombo->setCurrentIndex(0);
}

void AudioChainTab::onScopeChanged()
{
    mode = modeCombo->currentData().toString();
    peer = mode.isEmpty() ? QString() : peerCombo->currentText().trimmed();
    Scope scope;
    if (const auto it = edited.constFind(scopeKey(mode, peer)); it != edited.constEnd()) {
        scope = *it;
    } else {
        scope.own = !mode.isEmpty() && holderOf(mode, peer).value(kChainOwn).toBool(false);
        // What applies here now: the place's own chains, or those it falls back to.
        scope.tx = loadChainConfig(mode, peer, kTx);
        scope.rx = loadChainConfig(mode, peer, kRx);
    }
    loading = true;
    ownCheck->setVisible(!mode.isEmpty());
    ownCheck->setText(peer.isEmpty() ? QStringLiteral("Own settings for this mode (otherwise those of all modes)")
                                     : QStringLiteral("Own settings for this peer (otherwise those of the mode)"));
    ownCheck->setChecked(scope.own);
    txEditor->setConfig(scope.tx);
    rxEditor->setConfig(scope.rx);
    loading = false;
}

void AudioChainTab::keepEdits()
{
    // Editing a mode or peer's chain means wanting it for that place.
    if (!mode.isEmpty() && !ownCheck->isChecked() && sender() != ownCheck) {
        const QSignalBlocker blocker(ownCheck);
        ownCheck->setChecked(true);
    }
    edited.insert(scopeKey(mode, peer), {ownCheck->isChecked(), txEditor->config(), rxEditor->config()});
}

void AudioChainTab::commit()
{
    for (auto it = edited.constBegin(); it != edited.constEnd(); ++it) {
        const QStringList parts = it.key().split(QChar(0x1F));
        writeScope(parts.value(0), parts.value(1), it.value());
    }
    edited.clear();
}

void AudioChainTab::writeScope(const QString& modeKey, const QString& peerKey, const Scope& scope) const
{
    zl::Config& config = zl::Config::instance();
    if (modeKey.isEmpty()) {
        QJsonObject audio = config.section(kAudio);
        audio.insert(kTx, scope.tx.toJson());
        audio.insert(kRx, scope.rx.toJson());
        config.setSectionSilent(kAudio, audio);
        config.save();
        return;
    }
    QJsonObject section = config.section(modeKey);
    QJsonObject holder = holderOf(modeKey, peerKey);
    holder.insert(kChainOwn, scope.own);
    holder.insert(kTx, scope.tx.toJson());
    holder.insert(kRx, scope.rx.toJson());
    if (peerKey.isEmpty()) {
        section.insert(kAudio, holder);
    } else {
        QJsonObject peers = section.value(kPeerAudio).toObject();
        peers.insert(peerKey, holder);
        section.insert(kPeerAudio, peers);
    }
    config.setSectionSilent(modeKey, section);
    config.save();
}
