#include "aprs/AprsClient.h"

#include "app/LineBuffer.h"

#include <QDateTime>
#include <QDebug>
#include <QList>
#include <QTcpSocket>
#include <QTimer>

namespace zl::aprs {

namespace {

constexpr qint64 kRetryAfterMs = 20000;
// Sent at 0, 20, 40 and 60 s, given up at 80 s.
constexpr int kRetries = 3;
constexpr qint64 kDuplicateWindowMs = 60000;
constexpr int kSeenLimit = 512;
// A connection the server ends this soon after the login was most likely refused because the
// same callsign-SSID is logged in elsewhere.
constexpr qint64 kQuickCloseMs = 9999;

QString baseCall(const QString& call)
{
    const int dash = call.indexOf(QLatin1Char('-'));
    return dash > 0 ? call.left(dash) : call;
}

} // namespace

int passcode(const QString& callsign)
{
    const QByteArray call = baseCall(callsign.trimmed().toUpper()).toLatin1();
    int hash = 0x73E2;
    for (int i = 0; i < call.size(); i += 2) {
        hash ^= quint8(call.at(i)) << 8;
        if (i + 1 < call.size())
            hash ^= quint8(call.at(i + 1));
    }
    return hash & 0x7FFF;
}

AprsClient::AprsClient(QObject* parent)
    : QObject(parent), retryTimer(new QTimer(this)), socket(new QTcpSocket(this)), reconnectTimer(new QTimer(this)),
      clock([] { return QDateTime::currentMSecsSinceEpoch(); })
{
    qRegisterMetaType<zl::aprs::ParsedPacket>();
    retryTimer->setInterval(1000);
    connect(retryTimer, &QTimer::timeout, this, &AprsClient::onRetryTick);
    reconnectTimer->setSingleShot(true);
    reconnectTimer->setInterval(5000);
    connect(reconnectTimer, &QTimer::timeout, this, &AprsClient::onReconnectTick);
    connect(socket, &QTcpSocket::connected, this, &AprsClient::onConnected);
    connect(socket, &QTcpSocket::disconnected, this, &AprsClient::onDisconnected);
    connect(socket, &QTcpSocket::readyRead, this, &AprsClient::onReadyRead);
    connect(socket, &QTcpSocket::errorOccurred, this, &AprsClient::onSocketError);
}

AprsClient::~AprsClient()
{
    // No reconnect and no signals from a socket that goes with us.
    running = false;
    socket->disconnect(this);
    socket->abort();
}

void AprsClient::setServer(const QString& newHost, quint16 newPort)
{
    host = newHost.trimmed();
    port = newPort;
}

void AprsClient::setCallsign(const QString& call)
{
    callsign = call.trimmed();
}

void AprsClient::setFilter(const QString& newFilter)
{
    filter = newFilter.trimmed();
}

void AprsClient::setVersion(const QString& newVersion)
{
    version = newVersion;
}

void AprsClient::setTimersForTests(int retryTickMs, int reconnectMs)
{
    retryTimer->setInterval(retryTickMs);
    reconnectTimer->setInterval(reconnectMs);
}

QString AprsClient::statusText() const
{
    switch (currentState) {
    case State::Disconnected:
        return QStringLiteral("idle");
    case State::Resolving:
        return QStringLiteral("resolving");
    case State::Connecting:
        return QStringLiteral("connecting");
    case State::LoggedIn:
        return QStringLiteral("connected");
    case State::Failed:
        break;
    }
    return lastError.isEmpty() ? QStringLiteral("failed") : lastError;
}

QByteArray AprsClient::loginLine() const
{
    QString line = QStringLiteral("user %1 pass %2 vers zephyrlake %3")
                       .arg(callsign.trimmed().toUpper())
                       .arg(passcode(callsign))
                       .arg(version.isEmpty() ? QStringLiteral("0.1") : version);
    if (!filter.trimmed().isEmpty())
        line += QStringLiteral(" filter ") + filter.trimmed();
    return (line + QLatin1Char('\n')).toUtf8();
}

void AprsClient::setState(State s)
{
    if (s == currentState)
        return;
    currentState = s;
    emit stateChanged(s);
}

void AprsClient::fail(const QString& reason)
{
    lastError = reason;
    setState(State::Failed);
    emit errorReported(reason);
}

void AprsClient::start()
{
    if (callsign.isEmpty()) {
        fail(QStringLiteral("no callsign configured"));
        return;
    }
    if (host.isEmpty() || port == 0) {
        fail(QStringLiteral("no server configured"));
        return;
    }
    running = true;
    rxBuffer.clear();
    if (socket->state() == QAbstractSocket::ConnectedState) {
        setState(State::LoggedIn);
        writeLine(loginLine());
        return;
    }
    setState(State::Connecting);
    qInfo().noquote() << "AprsClient: connecting to" << QStringLiteral("%1:%2").arg(host).arg(port) << "as" << callsign
                      << "filter=" << filter;
    socket->connectToHost(host, port, QIODevice::ReadWrite, QAbstractSocket::AnyIPProtocol);
}

void AprsClient::stop()
{
    running = false;
    reconnectTimer->stop();
    if (socket->state() != QAbstractSocket::UnconnectedState) {
        socket->disconnectFromHost();
        if (socket->state() != QAbstractSocket::UnconnectedState)
            socket->abort();
    }
    setState(State::Disconnected);
}

bool AprsClient::writeLine(const QByteArray& line)
{
    if (socket->state() != QAbstractSocket::ConnectedState)
        return false;
    socket->write(line);
    return true;
}

void AprsClient::sendRaw(const QByteArray& line)
{
    writeLine(line);
}

void AprsClient::onConnected()
{
    qInfo() << "AprsClient: TCP connected";
    writeLine(loginLine());
    loginAtMs = clock();
    setState(State::LoggedIn);
    // The passcode is public arithmetic on the callsign, not a secret.
    qInfo() << "AprsClient: login sent passcode=" << passcode(callsign);
}

void AprsClient::onDisconnected()
{
    qInfo() << "AprsClient: TCP disconnected";
    if (loginAtMs != 0 && clock() - loginAtMs <= kQuickCloseMs) {
        if (++quickCloses > 1) {
            lastError = QStringLiteral("server closes right after login — another station is logged in as %1 "
                                       "(same callsign-SSID). Use a different SSID for zephyrlake.")
                            .arg(callsign.toUpper());
            qWarning().noquote() << "AprsClient:" << lastError;
            emit errorReported(lastError);
        }
    } else {
        quickCloses = 0;
    }
    loginAtMs = 0;
    if (running) {
        setState(State::Connecting);
        reconnectTimer->start();
    } else {
        setState(State::Disconnected);
    }
}

void AprsClient::onSocketError()
{
    lastError = socket->errorString();
    qWarning().noquote() << "AprsClient: socket error —" << lastError;
    emit errorReported(lastError);
    if (running)
        reconnectTimer->start();
}

void AprsClient::onReconnectTick()
{
    if (!running || socket->state() == QAbstractSocket::ConnectedState)
        return;
    qInfo() << "AprsClient: reconnect attempt";
    setState(State::Connecting);
    socket->abort();
    socket->connectToHost(host, port, QIODevice::ReadWrite, QAbstractSocket::AnyIPProtocol);
}

void AprsClient::onReadyRead()
{
    rxBuffer.append(socket->readAll());
    for (const QByteArray& line : zl::takeLines(rxBuffer))
        handleLine(line);
}

void AprsClient::handleLine(const QByteArray& line)
{
    emit rawLine(line);
    if (line.startsWith('#')) {
        if (!line.contains("logresp"))
            return;
        const bool verified = line.contains(" verified");
        qInfo().noquote() << "AprsClient: login response —" << QString::fromLatin1(line);
        emit loginResult(verified, QString::fromLatin1(line));
        if (!verified) {
            lastError = QStringLiteral("login unverified — check callsign/passcode");
            emit errorReported(lastError);
        }
        return;
    }
    ParsedPacket packet = parseLine(line);
    if (packet.type == ParsedPacket::Unknown)
        return;
    if (packet.type == ParsedPacket::Message)
        handleMessage(packet);
    emit packetReceived(packet);
}

bool AprsClient::isForMe(const QString& addressee) const
{
    const QString to = addressee.toUpper();
    const QString me = callsign.toUpper();
    return to == me || to == baseCall(me);
}

void AprsClient::handleMessage(ParsedPacket& packet)
{
    if (packet.isAck) {
        if (!isForMe(packet.addressee))
            return;
        const QString id = packet.body.mid(3).trimmed();
        const auto it = tracked.find(id);
        if (it == tracked.end())
            return;
        const QString status = packet.body.startsWith(QLatin1String("rej"), Qt::CaseInsensitive)
                                   ? QStringLiteral("rejected")
                                   : QStringLiteral("acked");
        const QString dest = it->dest;
        qInfo().noquote() << "AprsClient: msg" << id << "to" << dest << status;
        tracked.erase(it);
        emit messageStatus(id, dest, status);
        if (tracked.isEmpty())
            retryTimer->stop();
        return;
    }
    const qint64 now = clock();
    const QString key = packet.source.toUpper() + QLatin1Char('|') + packet.addressee.toUpper() + QLatin1Char('|') +
                        packet.body + QLatin1Char('|') + packet.msgId;
    const auto seen = seenMessages.constFind(key);
    if (seen != seenMessages.constEnd() && now - *seen < kDuplicateWindowMs)
        packet.duplicate = true;
    seenMessages.insert(key, now);
    if (seenMessages.size() > kSeenLimit) {
        for (auto it = seenMessages.begin(); it != seenMessages.end();) {
            if (now - *it >= kDuplicateWindowMs)
                it = seenMessages.erase(it);
            else
                ++it;
        }
    }
}

void AprsClient::sendPosition(double latitudeDeg, double longitudeDeg, ulong symbolTable, ulong symbolCode,
                              const QString& comment)
{
    if (currentState != State::LoggedIn)
        return;
    writeLine(formatPosition(callsign, latitudeDeg, longitudeDeg, char(symbolTable), char(symbolCode), comment));
}

void AprsClient::sendMessage(const QString& destCallsign, const QString& body, const QString& msgId)
{
    if (currentState != State::LoggedIn)
        return;
    writeLine(formatMessage(callsign, destCallsign, body, msgId));
}

void AprsClient::sendAck(const QString& destCallsign, const QString& msgId)
{
    if (currentState != State::LoggedIn)
        return;
    writeLine(formatAck(callsign, destCallsign, msgId));
}

QString AprsClient::sendTrackedMessage(const QString& destCallsign, const QString& body)
{
    if (currentState != State::LoggedIn)
        return {};
    lastMsgId = lastMsgId % 999 + 1;
    const QString id = QString::number(lastMsgId);
    const QString dest = destCallsign.trimmed().toUpper();
    writeLine(formatMessage(callsign, dest, body, id));
    tracked.insert(id, TrackedMessage{dest, body, clock(), 0});
    if (!retryTimer->isActive())
        retryTimer->start();
    qInfo().noquote() << "AprsClient: msg" << id << "to" << dest << "sent";
    emit messageStatus(id, dest, QStringLiteral("sent"));
    return id;
}

void AprsClient::onRetryTick()
{
    if (tracked.isEmpty()) {
        retryTimer->stop();
        return;
    }
    // Statuses go out after the walk: a listener may send the next message at once.
    struct Update {
        QString id;
        QString dest;
        QString status;
    };
    QList<Update> updates;
    const qint64 now = clock();
    for (auto it = tracked.begin(); it != tracked.end();) {
        const QString id = it.key();
        if (now - it->lastSentMs < kRetryAfterMs) {
            ++it;
            continue;
        }
        if (it->tries >= kRetries) {
            qInfo().noquote() << "AprsClient: msg" << id << "to" << it->dest << "timeout (no ack)";
            updates.append({id, it->dest, QStringLiteral("timeout")});
            it = tracked.erase(it);
            continue;
        }
        ++it->tries;
        it->lastSentMs = now;
        if (currentState == State::LoggedIn)
            writeLine(formatMessage(callsign, it->dest, it->body, id));
        qInfo().noquote() << "AprsClient: msg" << id << "to" << it->dest << "retry";
        updates.append({id, it->dest, QStringLiteral("retry")});
        ++it;
    }
    for (const Update& update : std::as_const(updates))
        emit messageStatus(update.id, update.dest, update.status);
}

} // namespace zl::aprs
