#include "DapnetCore.h"

#include <QTcpSocket>

DapnetCore::DapnetCore()
{
    transmitters.listen(QHostAddress::LocalHost);
    rest.listen(QHostAddress::LocalHost);
    connect(&transmitters, &QTcpServer::newConnection, this, [this] {
        while (QTcpSocket* socket = transmitters.nextPendingConnection()) {
            connect(socket, &QTcpSocket::readyRead, this, [this, socket] {
                while (socket->canReadLine())
                    onTransmitterLine(socket, socket->readLine().trimmed());
            });
            connect(socket, &QTcpSocket::disconnected, this, [this, socket] {
                loggedIn.removeAll(socket);
                socket->deleteLater();
            });
        }
    });
    connect(&rest, &QTcpServer::newConnection, this, [this] {
        while (QTcpSocket* socket = rest.nextPendingConnection()) {
            connect(socket, &QTcpSocket::readyRead, this, [this, socket] { onRestData(socket); });
            connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
        }
    });
}

DapnetCore::~DapnetCore()
{
    // Sockets still open say nothing more to a core that is going.
    for (const QTcpServer* server : {&transmitters, &rest}) {
        for (QTcpSocket* socket : server->findChildren<QTcpSocket*>())
            socket->disconnect(this);
    }
}

void DapnetCore::onTransmitterLine(QTcpSocket* socket, const QByteArray& line)
{
    lines.append(line);
    if (line.startsWith('[')) {
        ++logins;
        const bool good = line == goodLogin && logins > refusals;
        const QByteArrayList queue =
            good ? QByteArrayList{"2:1A2B", "3:+0000", "4:0123456789ABCDEF"} : QByteArrayList{"7 Invalid credentials"};
        socket->setProperty("queue", QVariant::fromValue(queue));
        socket->setProperty("refused", !good);
    } else if (line != "+") {
        return;
    } else if (socket->property("refused").toBool()) {
        socket->disconnectFromHost();
        return;
    }
    auto queue = socket->property("queue").value<QByteArrayList>();
    if (queue.isEmpty()) {
        if (!loggedIn.contains(socket))
            loggedIn.append(socket);
        return;
    }
    socket->write(queue.takeFirst() + "\r\n");
    socket->setProperty("queue", QVariant::fromValue(queue));
}

void DapnetCore::send(const QByteArray& line)
{
    for (QTcpSocket* socket : std::as_const(loggedIn))
        socket->write(line + "\r\n");
}

void DapnetCore::onRestData(QTcpSocket* socket)
{
    QByteArray request = socket->property("request").toByteArray() + socket->readAll();
    socket->setProperty("request", request);
    const qsizetype headEnd = request.indexOf("\r\n\r\n");
    if (headEnd < 0)
        return;
    QByteArray authorization;
    qsizetype length = 0;
    for (const QByteArray& header : request.left(headEnd).split('\n')) {
        const QByteArray name = header.left(header.indexOf(':')).trimmed().toLower();
        const QByteArray value = header.mid(header.indexOf(':') + 1).trimmed();
        if (name == "authorization")
            authorization = value;
        else if (name == "content-length")
            length = value.toLongLong();
    }
    if (request.size() < headEnd + 4 + length)
        return;
    calls.append(request.mid(headEnd + 4, length));
    const bool good = request.startsWith("POST /api/calls ") && authorization == goodAuthorization;
    const QByteArray body = good ? calls.last() : QByteArray(R"({"code":401,"name":"Unauthorized"})");
    socket->write((good ? "HTTP/1.1 201 Created" : "HTTP/1.1 401 Unauthorized") +
                  QByteArray("\r\nContent-Type: application/json\r\nConnection: close\r\nContent-Length: ") +
                  QByteArray::number(body.size()) + "\r\n\r\n" + body);
    socket->disconnectFromHost();
}
