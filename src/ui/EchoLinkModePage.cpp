#include "ui/EchoLinkModePage.h"

#include "app/Config.h"
#include "app/Identity.h"
#include "audio/AudioMixer.h"
#include "echolink/EchoLinkDirectory.h"
#include "echolink/EchoLinkDispatcher.h"
#include "echolink/IncomingPolicy.h"
#include "ui/ClickRow.h"

#include <QDateTime>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QRegularExpression>
#include <QTimer>
#include <QVBoxLayout>

namespace {

const QString kSection = QStringLiteral("echolink");
// The public directory used when the settings name none.
const QString kDefaultDirectory = QStringLiteral("servers.echolink.org");
// Audio after this much silence is a new reception.
constexpr qint64 kNewReceptionMs = 1000;
// The mixer takes 20 ms frames: 160 samples of 16 bits.
constexpr qsizetype kFrameBytes = 320;

QJsonObject settings()
{
    return zl::Config::instance().section(kSection);
}

QString ownCallsign()
{
    const QString stored = settings().value(QStringLiteral("callsign")).toString().trimmed();
    return (stored.isEmpty() ? zl::resolveIdentity(kSection).callsign : stored).toUpper();
}

} // namespace

EchoLinkModePage::EchoLinkModePage(QWidget* parent)
    : BaseModePage(QStringLiteral("Echolink"), parent), dir(new zl::echolink::EchoLinkDirectory(this)),
      disp(new zl::echolink::EchoLinkDispatcher(this))
{
    auto* layout = new QVBoxLayout(this);
    auto* top = new QHBoxLayout;
    onlineButton = new QPushButton(QStringLiteral("Online"));
    onlineButton->setObjectName(QStringLiteral("echolinkOnline"));
    onlineButton->setCheckable(true);
    onlineButton->setChecked(settings().value(QStringLiteral("enabled")).toBool());
    onlineButton->setToolTip(QStringLiteral("Go online / offline on the EchoLink directory."));
    top->addWidget(onlineButton);
    target = new QLineEdit;
    target->setObjectName(QStringLiteral("echolinkTarget"));
    target->setPlaceholderText(QStringLiteral("callsign or node number"));
    top->addWidget(target, 1);
    auto* connectButton = new QPushButton(QStringLiteral("Connect"));
    top->addWidget(connectButton);
    layout->addLayout(top);
    rowsLayout = new QVBoxLayout;
    layout->addLayout(rowsLayout);
    chat = new QPlainTextEdit;
    chat->setObjectName(QStringLiteral("echolinkChat"));
    chat->setReadOnly(true);
    layout->addWidget(chat, 1);

    connect(onlineButton, &QPushButton::toggled, this, [this](bool on) {
        QJsonObject section = settings();
        section.insert(QStringLiteral("enabled"), on);
        zl::Config::instance().setSection(kSection, section);
        if (registrationKey() != appliedRegistration)
            goOnline();
        emit enabledChanged(on);
    });
    auto connectTyped = [this] { connectTo(target->text()); };
    connect(connectButton, &QPushButton::clicked, this, connectTyped);
    connect(target, &QLineEdit::returnPressed, this, connectTyped);

    connect(dir, &zl::echolink::EchoLinkDirectory::registered, this, [this](bool ok) {
        if (ok)
            print(QStringLiteral("-- online as %1").arg(ownCallsign()));
        emit connectedChanged(isModeConnected());
    });
    connect(dir, &zl::echolink::EchoLinkDirectory::stationsUpdated, this,
            [this](const QList<zl::echolink::Station>& list) {
                stations.clear();
                for (const zl::echolink::Station& station : list)
                    stations.insert(station.callsign.toUpper(), station);
            });
    connect(dir, &zl::echolink::EchoLinkDirectory::errorReported, this,
            [this](const QString& reason) { print(QStringLiteral("-- directory: %1").arg(reason)); });
    connect(disp, &zl::echolink::EchoLinkDispatcher::incomingConnection, this, &EchoLinkModePage::onIncoming);
    // Sockets open once the window is on screen.
    if (isModeEnabled())
        QTimer::singleShot(1500, this, &EchoLinkModePage::goOnline);
}

EchoLinkModePage::~EchoLinkModePage()
{
    // Every station hears BYE when the page closes.
    for (zl::echolink::EchoLinkQso* each : std::as_const(connections)) {
        each->QObject::disconnect(this);
        each->disconnect();
    }
}

bool EchoLinkModePage::isModeEnabled() const
{
    return settings().value(QStringLiteral("enabled")).toBool();
}

bool EchoLinkModePage::isModeConnected() const
{
    return dir->isRegistered() || !connections.isEmpty();
}

QString EchoLinkModePage::serverText() const
{
    return callsigns.value(activeKey);
}

QString EchoLinkModePage::targetText() const
{
    return activeKey;
}

QString EchoLinkModePage::activeRowKey() const
{
    return activeKey;
}

void EchoLinkModePage::setPttActive(bool on)
{
    QObject::disconnect(micConnection);
    zl::echolink::EchoLinkQso* active = connections.value(activeKey);
    if (on && active && active->state() == zl::echolink::EchoLinkQso::State::Connected) {
        micConnection = connect(&zl::audio::AudioMixer::instance(), &zl::audio::AudioMixer::micPcmReady, active,
                                &zl::echolink::EchoLinkQso::pushPcm);
    }
}

void EchoLinkModePage::reloadConfig()
{
    const QSignalBlocker block(onlineButton);
    onlineButton->setChecked(isModeEnabled());
    // Every save of any setting lands here; the directory hears from us only when ours changed.
    if (registrationKey() != appliedRegistration)
        goOnline();
}

QString EchoLinkModePage::registrationKey() const
{
    const QJsonObject section = settings();
    return QStringList{section.value(QStringLiteral("enabled")).toBool() ? QStringLiteral("on") : QString(),
                       section.value(QStringLiteral("servers")).toString(),
                       ownCallsign(),
                       section.value(QStringLiteral("password")).toString(),
                       section.value(QStringLiteral("description")).toString(),
                       section.value(QStringLiteral("accept_incoming")).toBool() ? QStringLiteral("in") : QString()}
        .join(QLatin1Char('\n'));
}

QStringList EchoLinkModePage::chatLines() const
{
    return chat->toPlainText().split(QLatin1Char('\n'), Qt::SkipEmptyParts);
}

void EchoLinkModePage::refreshDirectory()
{
    dir->refresh();
}

void EchoLinkModePage::goOnline()
{
    const QJsonObject section = settings();
    const QString key = registrationKey();
    const bool changed = key != appliedRegistration;
    appliedRegistration = key;
    if (!section.value(QStringLiteral("enabled")).toBool()) {
        dir->goOffline();
        return;
    }
    const QString missing = ownCallsign().isEmpty() ? QStringLiteral("callsign")
                            : section.value(QStringLiteral("password")).toString().isEmpty()
                                ? QStringLiteral("password")
                                : QString();
    if (!missing.isEmpty()) {
        dir->goOffline();
        print(QStringLiteral("-- cannot go online: no EchoLink %1 set (Settings, EchoLink tab)").arg(missing));
        return;
    }
    QStringList servers = section.value(QStringLiteral("servers"))
                              .toString()
                              .split(QRegularExpression(QStringLiteral("[,\\s]+")), Qt::SkipEmptyParts);
    if (servers.isEmpty())
        servers = {kDefaultDirectory};
    dir->setServers(servers);
    dir->setCallsign(ownCallsign());
    dir->setPassword(section.value(QStringLiteral("password")).toString());
    dir->setLocation(section.value(QStringLiteral("description")).toString().left(27));
    if (changed || !dir->isRegistered())
        dir->refresh();
    if (section.value(QStringLiteral("accept_incoming")).toBool() && !disp->bind())
        print(QStringLiteral("-- cannot open UDP %1/%2 (in use by another EchoLink client?)")
                  .arg(disp->audioPort())
                  .arg(disp->ctrlPort()));
}

void EchoLinkModePage::connectTo(const QString& text)
{
    const QString typed = text.trimmed();
    if (typed.isEmpty())
        return;
    bool isNumber = false;
    const uint node = typed.toUInt(&isNumber);
    zl::echolink::Station station;
    if (isNumber) {
        bool found = false;
        for (const zl::echolink::Station& each : std::as_const(stations)) {
            if (each.nodeId >= 0 && uint(each.nodeId) == node) {
                station = each;
                found = true;
                break;
            }
        }
        if (!found) {
            print(QStringLiteral("-- node %1 not in the directory (open Directory to refresh).").arg(typed));
            dir->refresh();
            return;
        }
    } else {
        station = stations.value(typed.toUpper());
        station.callsign = typed.toUpper();
    }
    if (station.ip.isEmpty()) {
        qWarning() << "EchoLink: cannot connect" << station.callsign;
        print(QStringLiteral("-- %1 not found in the directory (offline, or open Directory to refresh).")
                  .arg(station.callsign));
        return;
    }
    if (!disp->bind()) {
        print(QStringLiteral("-- cannot open UDP %1/%2 (in use by another EchoLink client?)")
                  .arg(disp->audioPort())
                  .arg(disp->ctrlPort()));
        return;
    }
    if (connections.contains(station.ip)) {
        print(QStringLiteral("-- already connected to %1").arg(station.callsign));
        return;
    }
    zl::echolink::EchoLinkQso* each = makeQso(station.ip, station.callsign, station.nodeId);
    each->connectTo(station.ip);
}

void EchoLinkModePage::onIncoming(const QHostAddress& peer, const QString& callsign)
{
    const QJsonObject section = settings();
    const QString address = peer.toString();
    const QString label = callsign.isEmpty() ? address : callsign;
    if (!section.value(QStringLiteral("accept_incoming")).toBool() || connections.contains(address))
        return;
    const QString refusal = zl::echolink::incomingRejection(
        callsign, int(connections.size()), section.value(QStringLiteral("max_connections")).toInt(1),
        zl::echolink::parseCallsignList(section.value(QStringLiteral("allow_list")).toString()),
        zl::echolink::parseCallsignList(section.value(QStringLiteral("block_list")).toString()));
    if (!refusal.isEmpty()) {
        qInfo().noquote() << "EchoLink: rejecting" << label << QStringLiteral("— %1").arg(refusal);
        return;
    }
    qInfo().noquote() << "EchoLink: accepting incoming" << label << "from" << address;
    print(QStringLiteral("-- incoming connection from %1").arg(label));
    int nodeId = -1;
    if (stations.contains(callsign.toUpper()))
        nodeId = stations.value(callsign.toUpper()).nodeId;
    makeQso(address, label, nodeId)->acceptIncoming(peer);
}

zl::echolink::EchoLinkQso* EchoLinkModePage::makeQso(const QString& address, const QString& callsign, int nodeId)
{
    const QJsonObject section = settings();
    auto* each = new zl::echolink::EchoLinkQso(this);
    each->setCallsign(ownCallsign());
    each->setName(section.value(QStringLiteral("name")).toString());
    each->setDescription(section.value(QStringLiteral("description")).toString());
    each->setPorts(disp->audioPort(), disp->ctrlPort());
    each->setTiming(qsoTiming);
    each->setSendFunction(
        [this](const QHostAddress& to, quint16 port, const QByteArray& bytes) { disp->send(to, port, bytes); });
    connect(each, &zl::echolink::EchoLinkQso::stateChanged, this,
            [this, address](zl::echolink::EchoLinkQso::State state) { onQsoState(address, state); });
    connect(each, &zl::echolink::EchoLinkQso::pcmReady, this,
            [this, address](const QByteArray& pcm) { onQsoPcm(address, pcm); });
    connect(each, &zl::echolink::EchoLinkQso::chatReceived, this, [this, address](const QString& line) {
        print(QStringLiteral("%1> %2").arg(callsigns.value(address), line));
    });
    connect(each, &zl::echolink::EchoLinkQso::infoReceived, this,
            [this](const QString& text) { print(QStringLiteral("-- info -- %1").arg(text)); });
    connect(each, &zl::echolink::EchoLinkQso::errorReported, this,
            [this](const QString& reason) { print(QStringLiteral("-- %1").arg(reason)); });
    connections.insert(address, each);
    callsigns.insert(address, callsign);
    nodeIds.insert(address, nodeId);
    disp->addPeer(address, each);
    // The newest connection is the one the microphone goes to.
    activeKey = address;
    updateRows();
    return each;
}

void EchoLinkModePage::onQsoState(const QString& address, zl::echolink::EchoLinkQso::State state)
{
    if (state == zl::echolink::EchoLinkQso::State::Disconnected) {
        zl::echolink::EchoLinkQso* gone = connections.take(address);
        if (gone) {
            disp->removePeer(gone);
            gone->deleteLater();
        }
        callsigns.remove(address);
        nodeIds.remove(address);
        lastAudio.remove(address);
        if (activeKey == address)
            activeKey = connections.isEmpty() ? QString() : connections.keys().constFirst();
    }
    updateRows();
}

void EchoLinkModePage::onQsoPcm(const QString& address, const QByteArray& pcm)
{
    zl::audio::AudioMixer& mixer = zl::audio::AudioMixer::instance();
    for (qsizetype at = 0; at + kFrameBytes <= pcm.size(); at += kFrameBytes)
        mixer.pushPcm(modeKey(), pcm.mid(at, kFrameBytes), address);
    QElapsedTimer& last = lastAudio[address];
    if (!last.isValid() || last.elapsed() > kNewReceptionMs) {
        const QString call = callsigns.value(address);
        emit lastHeardLine(QDateTime::currentDateTime().toString(QStringLiteral("HH:mm:ss")), call, QString(),
                           QStringLiteral("node %1").arg(nodeIds.value(address, -1)), call, QString(), QString(),
                           QString());
    }
    last.start();
}

void EchoLinkModePage::selectConnection(const QString& address)
{
    if (!connections.contains(address))
        return;
    activeKey = address;
    updateRows();
    zl::audio::AudioMixer::instance().applyChains(modeKey(), address);
}

void EchoLinkModePage::updateRows()
{
    for (auto it = rows.begin(); it != rows.end();) {
        if (connections.contains(it.key())) {
            ++it;
            continue;
        }
        it.value()->hide();
        it.value()->deleteLater();
        it = rows.erase(it);
    }
    for (auto it = connections.begin(); it != connections.end(); ++it) {
        if (rows.contains(it.key()))
            continue;
        auto* row = new zl::ui::ClickRow(it.key(), QStringLiteral("%1  (%2)").arg(callsigns.value(it.key()), it.key()));
        connect(row, &zl::ui::ClickRow::clicked, this, &EchoLinkModePage::selectConnection);
        rowsLayout->addWidget(row);
        rows.insert(it.key(), row);
    }
    for (zl::ui::ClickRow* row : std::as_const(rows))
        row->setActive(row->key() == activeKey);
    emit connectedChanged(isModeConnected());
    emit statusTextChanged(serverText());
}

void EchoLinkModePage::print(const QString& line)
{
    chat->appendPlainText(line);
}
