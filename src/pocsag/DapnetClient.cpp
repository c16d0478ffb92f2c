#include "pocsag/DapnetClient.h"

#include "app/LineBuffer.h"
#include "pocsag/DapnetLine.h"

#include <QDebug>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QTcpSocket>
#include <QTimer>
#include <QUrl>

#include <algorithm>
#include <array>

namespace zl::pocsag {

namespace {

// Indexed by the logins refused in a row: a wrong auth key ends up asking every ten minutes,
// not every two seconds.
constexpr std::array<int, 10> kReconnectDelaysMs = {2000,  4000,   8000,   10000,  20000,
                                                    60000, 120000, 240000, 480000, 600000};
constexpr int kMostCountedFailures = 9;
constexpr int kCallTimeoutMs = 15000;
constexpr qsizetype kShownBodyBytes = 200;

// The gateway software and version the core knows; a name it does not know is refused.
constexpr const char* kGatewayName = "Plaigle";
constexpr const char* kGatewayVersion = "20260214";

QJsonArray trimmedArray(const QStringList& list)
{
    QJsonArray out;
    for (const QString& item : list)
        out.append(item.trimmed());
    return out;
}

} // namespace

DapnetClient::DapnetClient(QObject* parent)
    : QObject(parent), socket(new QTcpSocket(this)), reconnectTimer(new QTimer(this)),
      network(new QNetworkAccessManager(this)), apiBase(QStringLiteral("https://hampager.de"))
{
    reconnectTimer->setSingleShot(true);
    connect(reconnectTimer, &QTimer::timeout, this, &DapnetClient::onReconnectTick);
    connect(socket, &QTcpSocket::connected, this, &DapnetClient::onConnected);
    connect(socket, &QTcpSocket::disconnected, this, &DapnetClient::onDisconnected);
    connect(socket, &QTcpSocket::readyRead, this, &DapnetClient::onReadyRead);
    connect(socket, &QTcpSocket::errorOccurred, this, &DapnetClient::onSocketError);
}

DapnetClient::~DapnetClient()
{
    // No reconnect and no signals from a socket that goes with us.
    running = false;
    socket->disconnect(this);
    socket->abort();
}

void DapnetClient::setServer(const QString& newHost, quint16 newPort)
{
    host = newHost.trimmed();
    port = newPort;
}

void DapnetClient::setTransmitter(const QString& name, const QString& key)
{
    txName = name.trimmed();
    authKey = key.trimmed();
}

void DapnetClient::setAccount(const QString& name, const QString& secret)
{
    username = name.trimmed();
    password = secret;
}

QString DapnetClient::statusText() const
{
    switch (currentState) {
    case State::Disconnected:
        return QStringLiteral("idle");
    case State::Connecting:
        return QStringLiteral("connecting");
    case State::LoggingIn:
        return QStringLiteral("logging in");
    case State::LoggedIn:
        return QStringLiteral("connected");
    case State::Failed:
        break;
    }
    return lastError.isEmpty() ? QStringLiteral("failed") : lastError;
}

int DapnetClient::reconnectDelayMs() const
{
    return kReconnectDelaysMs.at(std::min(loginFailures, kMostCountedFailures));
}

void DapnetClient::setState(State s)
{
    if (s == currentState)
        return;
    currentState = s;
    emit stateChanged(s);
}

void DapnetClient::fail(const QString& reason)
{
    lastError = reason;
    setState(State::Failed);
    emit errorReported(reason);
}

void DapnetClient::start()
{
    if (txName.isEmpty() || authKey.isEmpty()) {
        fail(QStringLiteral("transmitter name or auth key missing"));
        return;
    }
    if (host.isEmpty() || port == 0) {
        fail(QStringLiteral("no DAPNET server configured"));
        return;
    }
    running = true;
    rxBuffer.clear();
    reconnectTimer->stop();
    if (socket->state() != QAbstractSocket::UnconnectedState)
        socket->abort();
    setState(State::Connecting);
    qInfo().noquote() << "DapnetClient: connecting to" << host << ":" << port << "as transmitter" << txName;
    socket->connectToHost(host, port, QIODevice::ReadWrite, QAbstractSocket::AnyIPProtocol);
}

void DapnetClient::stop()
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

void DapnetClient::startReconnectTimer()
{
    // Told, so that a transmitter silent for minutes after refused logins is not a mystery.
    qInfo().noquote() << "DapnetClient: next attempt in" << reconnectDelayMs() / 1000 << "s";
    reconnectTimer->start(reconnectDelayMs() / timerSpeedup);
}

void DapnetClient::onConnected()
{
    // The auth key is a password: it goes on the wire and nowhere else.
    socket->write(QStringLiteral("[%1 v%2 %3 %4]\r\n")
                      .arg(QLatin1String(kGatewayName), QLatin1String(kGatewayVersion), txName.toLower(), authKey)
                      .toUtf8());
    setState(State::LoggingIn);
    qInfo().noquote() << "DapnetClient: TCP connected, login sent as" << txName.toLower();
}

void DapnetClient::onDisconnected()
{
    qInfo() << "DapnetClient: TCP disconnected";
    if (!running) {
        setState(State::Disconnected);
        return;
    }
    setState(State::Connecting);
    startReconnectTimer();
}

void DapnetClient::onSocketError()
{
    // The core closes the connection after refusing a login; its reason is the one worth keeping.
    if (socket->error() == QAbstractSocket::RemoteHostClosedError && currentState == State::Failed)
        return;
    lastError = socket->errorString();
    qWarning().noquote() << "DapnetClient: socket error —" << lastError;
    emit errorReported(lastError);
    if (running && !reconnectTimer->isActive())
        startReconnectTimer();
}

void DapnetClient::onReconnectTick()
{
    if (!running || socket->state() == QAbstractSocket::ConnectedState)
        return;
    qInfo() << "DapnetClient: reconnect attempt";
    setState(State::Connecting);
    socket->abort();
    socket->connectToHost(host, port, QIODevice::ReadWrite, QAbstractSocket::AnyIPProtocol);
}

void DapnetClient::onReadyRead()
{
    rxBuffer.append(socket->readAll());
    for (const QByteArray& line : zl::takeLines(rxBuffer))
        handleLine(line);
}

void DapnetClient::handleLine(const QByteArray& line)
{
    const DapnetLine parsed = parseDapnetLine(line);
    switch (parsed.kind) {
    case DapnetLine::Kind::Message:
        handleMessage(line, parsed);
        return;
    case DapnetLine::Kind::Error:
        qWarning() << "DapnetClient: DAPNET reported an error";
        break;
    case DapnetLine::Kind::TimeSync:
        // The core syncs the time again now and then; only the first one is the login's answer.
        if (currentState != State::LoggedIn) {
            loginFailures = 0;
            lastError.clear();
            setState(State::LoggedIn);
            qInfo().noquote() << "DapnetClient: logged in to DAPNET as" << txName;
        }
        break;
    case DapnetLine::Kind::Schedule: {
        const QString slotText = QString::fromLatin1(parsed.text);
        qInfo().noquote() << "DapnetClient: schedule (slots)" << slotText;
        emit scheduleReceived(slotText);
        break;
    }
    case DapnetLine::Kind::LoginRefused:
        lastError = QStringLiteral("DAPNET login failed: %1").arg(QString::fromLatin1(parsed.text));
        qWarning().noquote() << "DapnetClient:" << lastError;
        emit errorReported(lastError);
        socket->write(parsed.answer);
        if (loginFailures < kMostCountedFailures)
            ++loginFailures;
        setState(State::Failed);
        return;
    case DapnetLine::Kind::Unknown:
        qWarning().noquote() << "DapnetClient: unknown line from DAPNET:" << QString::fromLatin1(line);
        break;
    case DapnetLine::Kind::Ack:
    case DapnetLine::Kind::SlotData:
        break;
    }
    socket->write(parsed.answer);
}

void DapnetClient::handleMessage(const QByteArray& line, const DapnetLine& message)
{
    if (!message.wellFormed) {
        qWarning().noquote() << "DapnetClient: malformed message" << QString::fromLatin1(line);
        socket->write(message.answer);
        return;
    }
    socket->write(message.answer);
    if (message.isTimeBroadcast())
        return;
    emit pageReceived(message.ric, message.type, message.func, QString::fromUtf8(message.text));
}

void DapnetClient::sendCall(const QString& text, const QStringList& callsigns, const QStringList& groups,
                            bool emergency)
{
    if (username.isEmpty() || password.isEmpty()) {
        emit callResult(false, QStringLiteral("DAPNET username/password missing"));
        return;
    }
    if (callsigns.isEmpty() || groups.isEmpty()) {
        emit callResult(false, QStringLiteral("recipient callsign and transmitter group required"));
        return;
    }
    const QJsonObject call{{QStringLiteral("text"), text},
                           {QStringLiteral("callSignNames"), trimmedArray(callsigns)},
                           {QStringLiteral("transmitterGroupNames"), trimmedArray(groups)},
                           {QStringLiteral("emergency"), emergency}};
    QNetworkRequest request(QUrl(apiBase + QStringLiteral("/api/calls")));
    request.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("application/json"));
    request.setHeader(QNetworkRequest::UserAgentHeader, QStringLiteral("zephyrlake/0.1"));
    request.setRawHeader("Authorization", "Basic " + (username + QLatin1Char(':') + password).toUtf8().toBase64());
    request.setTransferTimeout(kCallTimeoutMs);
    QNetworkReply* reply = network->post(request, QJsonDocument(call).toJson(QJsonDocument::Compact));
    connect(reply, &QNetworkReply::finished, this, [this, reply, callsigns] {
        reply->deleteLater();
        const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
        const QByteArray body = reply->readAll();
        const QString recipients = callsigns.join(QStringLiteral(", "));
        if (reply->error() == QNetworkReply::NoError && status >= 200 && status <= 299) {
            qInfo().noquote() << "DapnetClient: call sent to" << recipients;
            emit callResult(true, QStringLiteral("Sent to %1 (HTTP %2)").arg(recipients).arg(status));
            return;
        }
        QString message = status == 0 ? QStringLiteral("DAPNET API: %1").arg(reply->errorString())
                                      : QStringLiteral("DAPNET API HTTP %1: %2")
                                            .arg(status)
                                            .arg(QString::fromUtf8(body.left(kShownBodyBytes)));
        if (status == 401)
            message += QStringLiteral(" — wrong DAPNET username/password");
        qWarning().noquote() << "DapnetClient:"
                             << "HTTP" << status;
        emit callResult(false, message);
    });
}

} // namespace zl::pocsag
