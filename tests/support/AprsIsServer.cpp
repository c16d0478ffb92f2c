#include "AprsIsServer.h"

#include <QTcpSocket>
#include <QTimer>

AprsIsServer::AprsIsServer(QObject* parent) : QObject(parent)
{
    server.listen(QHostAddress::LocalHost);
    auto* comments = new QTimer(this);
    connect(comments, &QTimer::timeout, this,
            [this] { send("# aprsc 2.1.19-g730c5c0 25 Nov 2026 06:00:00 GMT T2LOOP"); });
    comments->start(200);
    connect(&server, &QTcpServer::newConnection, this, [this] {
        while (QTcpSocket* socket = server.nextPendingConnection()) {
            clients.append(socket);
            socket->write("# aprsc 2.1.19-g730c5c0\r\n");
            connect(socket, &QTcpSocket::readyRead, this, [this, socket] {
                while (socket->canReadLine())
                    onLine(socket, socket->readLine().trimmed());
            });
            connect(socket, &QTcpSocket::disconnected, this, [this, socket] {
                clients.removeAll(socket);
                loggedIn.removeAll(socket);
                verifiedClients.removeAll(socket);
                socket->deleteLater();
            });
        }
    });
}

AprsIsServer::~AprsIsServer()
{
    // Sockets still open say nothing more to a server that is going.
    for (QTcpSocket* socket : std::as_const(clients))
        socket->disconnect(this);
}

void AprsIsServer::onLine(QTcpSocket* socket, const QByteArray& line)
{
    lines.append(line);
    emit lineReceived(line);
    if (loggedIn.contains(socket)) {
        for (QTcpSocket* other : std::as_const(clients)) {
            if (other != socket && verifiedClients.contains(socket))
                other->write(line + "\r\n");
        }
        return;
    }
    const QList<QByteArray> words = line.split(' ');
    if (words.size() < 4 || words.at(0) != "user" || words.at(2) != "pass") {
        socket->disconnectFromHost();
        return;
    }
    ++logins;
    const QByteArray call = words.at(1);
    const QByteArray base = call.split('-').first();
    const bool verified = passcodes.contains(base) && passcodes.value(base) == words.at(3).toInt();
    socket->write("# logresp " + call + (verified ? " verified" : " unverified") + ", server T2LOOP\r\n");
    loggedIn.append(socket);
    if (verified)
        verifiedClients.append(socket);
    if (closeAfterLogin)
        socket->disconnectFromHost();
}

void AprsIsServer::send(const QByteArray& line)
{
    for (QTcpSocket* socket : std::as_const(clients))
        socket->write(line + "\r\n");
}

void AprsIsServer::dropClients()
{
    for (QTcpSocket* socket : std::as_const(clients))
        socket->disconnectFromHost();
}
