#include "EchoLinkDirectory.h"

#include <QDebug>
#include <QTcpSocket>
#include <QTime>
#include <QTimer>

namespace zl::echolink {

QByteArray registrationRequest(const QString& callsign, const QString& password, const QString& statusText,
                               const QString& location)
{
    return QByteArray("l") + callsign.toUtf8() + QByteArray("\xAC\xAC") + password.toUtf8() + '\r' +
           statusText.toUtf8() + '\r' + location.toUtf8() + '\r';
}

QString registrationStatusText(EchoLinkDirectory::Status status, const QString& localTime)
{
    // The two version numbers differ; the directory knows them in this form.
    switch (status) {
    case EchoLinkDirectory::Status::Offline:
        return QStringLiteral("OFF-V3.40");
    case EchoLinkDirectory::Status::Online:
        return QStringLiteral("ONLINE3.38(%1)").arg(localTime);
    case EchoLinkDirectory::Status::Busy:
        return QStringLiteral("BUSY3.40(%1)").arg(localTime);
    }
    return {};
}

EchoLinkDirectory::EchoLinkDirectory(QObject* parent) : QObject(parent), renewTimer(new QTimer(this))
{
    renewTimer->setInterval(300000);
    connect(renewTimer, &QTimer::timeout, this, &EchoLinkDirectory::onRenew);
}

void EchoLinkDirectory::setRenewIntervalForTest(int ms)
{
    renewTimer->setInterval(ms);
}

void EchoLinkDirectory::refresh()
{
    refreshPending = true;
    if (registeredOk) {
        if (job == Job::None) {
            refreshPending = false;
            startJob(Job::List, QStringLiteral("s"));
        }
        return;
    }
    if (status == Status::Offline)
        status = Status::Online;
    renewTimer->start();
    sendRegistration();
}

void EchoLinkDirectory::goOnline(Status newStatus)
{
    status = newStatus == Status::Offline ? Status::Online : newStatus;
    renewTimer->start();
    sendRegistration();
}

void EchoLinkDirectory::goOffline()
{
    const bool wasRegistered = registeredOk;
    status = Status::Offline;
    renewTimer->stop();
    registeredOk = false;
    refreshPending = false;
    if (wasRegistered) {
        sendRegistration();
        return;
    }
    dropSocket();
    job = Job::None;
}

void EchoLinkDirectory::onRenew()
{
    // A failed registration waits for the next tick.
    if (status == Status::Offline)
        return;
    renewTimer->start();
    sendRegistration();
}

void EchoLinkDirectory::sendRegistration()
{
    // Text of the request goes out byte for byte; build it as Latin-1 so that 0xAC survives.
    const QByteArray bytes = registrationRequest(
        callsign, password, registrationStatusText(status, QTime::currentTime().toString(QStringLiteral("HH:mm"))),
        location);
    startJob(Job::Register, QString::fromLatin1(bytes));
}

QString EchoLinkDirectory::currentServer() const
{
    return servers.at(qMin(serverIndex, int(servers.size()) - 1));
}

void EchoLinkDirectory::dropSocket()
{
    if (!socket)
        return;
    socket->disconnect(this);
    socket->abort();
    socket->deleteLater();
    socket = nullptr;
}

void EchoLinkDirectory::startJob(Job newJob, const QString& newRequest)
{
    if (servers.isEmpty()) {
        emit errorReported(QStringLiteral("no EchoLink directory server configured"));
        return;
    }
    dropSocket();
    job = newJob;
    request = newRequest;
    rxBuffer.clear();
    socket = new QTcpSocket(this);
    connect(socket, &QTcpSocket::connected, this, &EchoLinkDirectory::onConnected);
    connect(socket, &QTcpSocket::readyRead, this, &EchoLinkDirectory::onReadyRead);
    connect(socket, &QTcpSocket::disconnected, this, &EchoLinkDirectory::finish);
    connect(socket, &QTcpSocket::errorOccurred, this, &EchoLinkDirectory::onSocketError);
    const QString server = currentServer();
    qInfo() << "EchoLinkDirectory: connecting to" << server << port
            << (job == Job::Register ? "(register)" : "(station list)");
    socket->connectToHost(server, port, QIODevice::ReadWrite, QAbstractSocket::AnyIPProtocol);
}

void EchoLinkDirectory::onConnected()
{
    serverIndex = 0;
    qInfo() << "EchoLinkDirectory: connected to" << socket->peerName()
            << "job=" << (job == Job::Register ? "register" : "list");
    socket->write(request.toLatin1());
}

void EchoLinkDirectory::onReadyRead()
{
    rxBuffer.append(socket->readAll());
    if ((job == Job::Register && rxBuffer.size() >= 2) || (job == Job::List && rxBuffer.contains("+++")))
        finish();
}

void EchoLinkDirectory::onSocketError()
{
    // The far end closing after its reply is how a job normally ends, not a failure.
    if (socket->error() == QAbstractSocket::RemoteHostClosedError)
        return;
    const QString reason = socket->errorString();
    qWarning() << "EchoLinkDirectory: connect error to" << currentServer() << ":" << port << "-" << reason;
    const Job failedJob = job;
    ++serverIndex;
    if (serverIndex < servers.size()) {
        startJob(failedJob, request);
        return;
    }
    serverIndex = 0;
    dropSocket();
    job = Job::None;
    emit errorReported(QStringLiteral("EchoLink directory: %1").arg(reason));
}

void EchoLinkDirectory::finish()
{
    if (job == Job::None)
        return;
    const Job finished = job;
    job = Job::None;
    if (socket)
        rxBuffer.append(socket->readAll());
    dropSocket();
    if (finished == Job::Register)
        finishRegistration(rxBuffer);
    else
        finishList(rxBuffer);
}

void EchoLinkDirectory::finishRegistration(const QByteArray& reply)
{
    registeredOk = reply.startsWith("OK") && status != Status::Offline;
    qInfo() << "EchoLinkDirectory: register" << (registeredOk ? "OK" : "FAILED") << "as" << callsign << "(reply"
            << reply.left(40) << ")";
    emit registered(registeredOk);
    if (registeredOk && refreshPending && status != Status::Offline) {
        refreshPending = false;
        startJob(Job::List, QStringLiteral("s"));
    }
}

void EchoLinkDirectory::finishList(const QByteArray& reply)
{
    const std::optional<QList<Station>> stations = parseStationList(reply);
    if (!stations) {
        emit errorReported(QStringLiteral("EchoLink directory: malformed station list"));
        return;
    }
    qInfo() << "EchoLinkDirectory: station list —" << stations->size() << "stations";
    emit stationsUpdated(*stations);
}

} // namespace zl::echolink
