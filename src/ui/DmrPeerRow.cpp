#include "ui/DmrPeerRow.h"

#include "app/Config.h"
#include "dmr/BmApiClient.h"
#include "dmr/TgifApiClient.h"
#include "ui/BaseModePage.h"
#include "ui/PeerTgWindow.h"
#include "ui/StyleSheet.h"

#include <QCheckBox>
#include <QDateTime>
#include <QHBoxLayout>
#include <QLabel>
#include <QMouseEvent>
#include <QPushButton>
#include <QSpinBox>

namespace zl::ui {

const char* DmrPeerRow::dotColour(zl::dmr::DmrPeerClient::State state)
{
    using Client = zl::dmr::DmrPeerClient;
    switch (state) {
    case Client::Running:
        return BaseModePage::kUp;
    case Client::Resolving:
    case Client::WaitingLogin:
    case Client::WaitingAuth:
    case Client::WaitingConfig:
        return BaseModePage::kBetween;
    case Client::Failed:
        return BaseModePage::kFailed;
    default:
        return BaseModePage::kIdle;
    }
}

namespace {

// Widths of the fields that do not stretch, shared by the rows and their header.
struct Columns {
    int dot = 14;
    int marker = 12;
    int on = zl::uiScale(34);
    int tg = zl::uiScale(96);
    int callType = zl::uiScale(44);
    int edit = zl::uiScale(60);
    int editTg = zl::uiScale(66);
};

constexpr qint64 kApiRepeatMs = 60000;

QString joined(const QList<zl::dmr::BmStatic>& list, const QString& prefix)
{
    QStringList out;
    for (const zl::dmr::BmStatic& s : list)
        out << prefix + QString::number(s.tg);
    return out.join(QStringLiteral(" · "));
}

QHBoxLayout* rowLayout(QFrame* frame)
{
    frame->setProperty("row", true);
    auto* layout = new QHBoxLayout(frame);
    layout->setContentsMargins(6, 3, 6, 3);
    layout->setSpacing(6);
    return layout;
}

} // namespace

QFrame* DmrPeerRow::header()
{
    const Columns widths;
    auto* frame = new QFrame;
    frame->setObjectName(QStringLiteral("peerHeader"));
    QHBoxLayout* layout = rowLayout(frame);
    // A row's frame without its colours: the same border and margins keep the columns in line.
    frame->setStyleSheet(QStringLiteral("QFrame#peerHeader { background: transparent; border-color: transparent; }"));
    const auto title = [layout](const char* text, int width, int stretch) {
        auto* label = new QLabel(QLatin1String(text));
        label->setProperty("header", true);
        if (width > 0)
            label->setFixedWidth(width);
        layout->addWidget(label, stretch);
    };
    title("", widths.dot + widths.marker + layout->spacing(), 0);
    title("PEER", 0, 2);
    title("NETWORK", 0, 1);
    title("API TG  S=static D=dyn", 0, 2);
    title("ON", widths.on, 0);
    title("CALL", 0, 1);
    title("TG", widths.tg + widths.callType + widths.edit + widths.editTg + 3 * layout->spacing(), 0);
    return frame;
}

DmrPeerRow::DmrPeerRow(const zl::dmr::Peer& shown, QWidget* parent) : QFrame(parent), peer(shown)
{
    setObjectName(QStringLiteral("peerRow_") + peer.label);
    QHBoxLayout* layout = rowLayout(this);
    const Columns widths;
    dot = new QLabel(QStringLiteral("●"));
    dot->setFixedWidth(widths.dot);
    marker = new QLabel;
    marker->setFixedWidth(widths.marker);
    name = new QLabel;
    network = new QLabel;
    onBox = new QCheckBox;
    onBox->setToolTip(QStringLiteral("Peer on/off. Off = login stops."));
    call = new QLabel;
    tgSpin = new QSpinBox;
    tgSpin->setRange(0, 16777215);
    tgSpin->setToolTip(QStringLiteral("Talkgroup (or DMR ID for a private call) that PTT transmits to"));
    callType = new QPushButton;
    callType->setCheckable(true);
    callType->setToolTip(
        QStringLiteral("GC = group call to the TG. PC = private call: the field is the other station's DMR ID."));
    editButton = new QPushButton(QStringLiteral("Edit"));
    editButton->setProperty("variant", QStringLiteral("ghost"));
    editButton->setToolTip(QStringLiteral("Edit this peer in Settings."));
    api = new QLabel;
    api->setObjectName(QStringLiteral("peerApi"));
    editTg = new QPushButton(QStringLiteral("Edit TG"));
    editTg->setObjectName(QStringLiteral("peerEditTg"));
    editTg->setProperty("variant", QStringLiteral("ghost"));
    editTg->setFixedWidth(widths.editTg);
    onBox->setFixedWidth(widths.on);
    tgSpin->setFixedWidth(widths.tg);
    callType->setFixedWidth(widths.callType);
    editButton->setFixedWidth(widths.edit);
    layout->addWidget(dot);
    layout->addWidget(marker);
    layout->addWidget(name, 2);
    layout->addWidget(network, 1);
    layout->addWidget(api, 2);
    layout->addWidget(onBox);
    layout->addWidget(call, 1);
    layout->addWidget(tgSpin);
    layout->addWidget(callType);
    layout->addWidget(editTg);
    layout->addWidget(editButton);
    setStatus(QLatin1String(BaseModePage::kIdle), QString());
    showPeer();

    connect(onBox, &QCheckBox::toggled, this, [this](bool on) {
        peer.auto_connect = on;
        store();
    });
    connect(tgSpin, &QSpinBox::editingFinished, this, [this] {
        if (peer.active_tg == quint32(tgSpin->value()))
            return;
        peer.active_tg = quint32(tgSpin->value());
        store();
    });
    connect(callType, &QPushButton::toggled, this, [this](bool privateCall) {
        peer.private_call = privateCall;
        callType->setText(privateCall ? QStringLiteral("PC") : QStringLiteral("GC"));
        store();
    });
    connect(editButton, &QPushButton::clicked, this, [this] { emit editRequested(peer.label); });
    connect(editTg, &QPushButton::clicked, this, [this] {
        auto* window = new PeerTgWindow(peer.label, this->window());
        connect(window, &PeerTgWindow::changed, this, &DmrPeerRow::onTgWindowChanged);
        window->show();
    });
}

void DmrPeerRow::setPeer(const zl::dmr::Peer& newer)
{
    peer = newer;
    showPeer();
}

void DmrPeerRow::showPeer()
{
    const QSignalBlocker b1(onBox), b2(tgSpin), b3(callType);
    name->setText(peer.label);
    network->setText(peer.network);
    onBox->setChecked(peer.auto_connect);
    call->setText(zl::dmr::peerCallsign(peer));
    if (!tgSpin->hasFocus())
        tgSpin->setValue(int(peer.active_tg));
    callType->setChecked(peer.private_call);
    callType->setText(peer.private_call ? QStringLiteral("PC") : QStringLiteral("GC"));
    editTg->setEnabled(peer.use_api_key);
    editTg->setToolTip(peer.use_api_key
                           ? QStringLiteral("Talkgroups of this hotspot on the network.")
                           : QStringLiteral("Needs the peer's API key: Edit → Authentication → Use API key."));
}

QString DmrPeerRow::apiText() const
{
    return api->text();
}

void DmrPeerRow::showApi(const QString& text, const QString& tip)
{
    api->setText(text);
    api->setToolTip(tip);
}

bool DmrPeerRow::apiRequestDue(const QString& requestKey, bool force)
{
    const qint64 now = QDateTime::currentMSecsSinceEpoch();
    if (!force && requestKey == lastRequestKey && now - lastRequestMs < kApiRepeatMs)
        return false;
    if (peer.server.trimmed().isEmpty() || zl::dmr::peerId(peer) == 0) {
        showApi(QStringLiteral("API: missing server/DMR ID"), QString());
        return false;
    }
    lastRequestKey = requestKey;
    lastRequestMs = now;
    showApi(QStringLiteral("…"), QString());
    return true;
}

void DmrPeerRow::refreshApiStatus(bool force)
{
    const quint32 hotspot = zl::dmr::peerId(peer);
    const auto error = [this](const QString& why) { showApi(QStringLiteral("API: error"), why); };
    if (peer.network.compare(QLatin1String("TGIF"), Qt::CaseInsensitive) == 0) {
        const QString host = peer.server.section(QLatin1Char(':'), 0, 0).trimmed();
        if (!apiRequestDue(host + QLatin1Char('|') + QString::number(hotspot), force))
            return;
        if (!tgif) {
            tgif = new zl::dmr::TgifApiClient(this);
            connect(tgif, &zl::dmr::TgifApiClient::errorReported, this, error);
            connect(tgif, &zl::dmr::TgifApiClient::statusFetched, this, [this](const zl::dmr::TgifStatus& st) {
                if (!st.connected) {
                    showApi(QStringLiteral("not in TGIF list"),
                            QStringLiteral("TGIF's session list does not show this hotspot — is the peer logged in?"));
                    return;
                }
                const auto tg = [](quint32 v) { return v == 0 ? QStringLiteral("none") : QString::number(v); };
                const QString text =
                    st.ts1Talkgroup == 0 && st.ts2Talkgroup == 0
                        ? QStringLiteral("no TG")
                        : QStringLiteral("TS1 %1 · TS2 %2").arg(tg(st.ts1Talkgroup), tg(st.ts2Talkgroup));
                showApi(text, QStringLiteral("Active talkgroup per slot, live from TGIF\n") + text);
            });
        }
        tgif->setHost(peer.server);
        tgif->setHotspotId(hotspot);
        tgif->fetchStatus();
        return;
    }
    if (peer.network.compare(QLatin1String("Brandmeister"), Qt::CaseInsensitive) != 0)
        return;
    const QString key = zl::dmr::resolveApiKey(peer);
    const bool useApi =
        peer.use_api_key ||
        Config::instance().section(QStringLiteral("dmr")).value(QStringLiteral("bm_api_enabled")).toBool();
    if (key.isEmpty() || !useApi)
        return;
    if (!peer.auto_connect && !force) {
        showApi(QString(), QString());
        lastRequestKey.clear();
        return;
    }
    const QStringList parts{peer.server, QString::number(hotspot), key};
    if (!apiRequestDue(parts.join(QLatin1Char('|')), force))
        return;
    if (!bm) {
        bm = new zl::dmr::BmApiClient(this);
        connect(bm, &zl::dmr::BmApiClient::errorReported, this, error);
        connect(bm, &zl::dmr::BmApiClient::profileFetched, this, [this](const zl::dmr::BmProfile& p) {
            QStringList shown;
            if (!p.staticTalkgroups.isEmpty())
                shown << joined(p.staticTalkgroups, QStringLiteral("S "));
            if (!p.dynamicTalkgroups.isEmpty())
                shown << joined(p.dynamicTalkgroups, QStringLiteral("D "));
            showApi(shown.isEmpty() ? QStringLiteral("no TG") : shown.join(QStringLiteral(" · ")),
                    QStringLiteral("Talkgroups on this connection, live from the network's API\nStatic:  ") +
                        joined(p.staticTalkgroups, {}) + QStringLiteral("\nDynamic: ") +
                        joined(p.dynamicTalkgroups, {}) + QStringLiteral("\nTimed:   ") +
                        joined(p.timedTalkgroups, {}));
        });
    }
    bm->setBase(zl::dmr::BmApiClient::apiBaseForServer(peer.server));
    bm->setApiKey(key);
    bm->setDeviceId(hotspot);
    bm->fetchProfile();
}

void DmrPeerRow::setStatus(const QString& newColour, const QString& text)
{
    colour = newColour;
    dot->setStyleSheet(BaseModePage::dotStyle(colour));
    setToolTip(text);
}

void DmrPeerRow::setDefault(bool on)
{
    BaseModePage::setRowActive(this, marker, on);
    BaseModePage::setStyleFlag(this, "primary", on);
}

void DmrPeerRow::mousePressEvent(QMouseEvent* event)
{
    if (event->button() == Qt::LeftButton)
        emit clickedAsDefault(peer.label);
    QFrame::mousePressEvent(event);
}

void DmrPeerRow::store()
{
    QList<zl::dmr::Peer> peers = zl::dmr::loadPeers();
    for (zl::dmr::Peer& stored : peers) {
        if (stored.label == peer.label)
            stored = peer;
    }
    zl::dmr::savePeers(peers);
    Config::instance().save();
}

} // namespace zl::ui
