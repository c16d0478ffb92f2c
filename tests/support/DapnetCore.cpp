#include "DapnetCore.h"

DapnetCore::DapnetCore(const QByteArray& login, const QByteArray& authorization)
    : goodLogin(login), goodAuthorization(authorization)
{
    transmitters.listen(QHostAddress::LocalHost);
    rest.listen(QHostAddress::LocalHost);
    connect(&transmitters, &QTcpServer::newConnection, this, [this] {
        while (QTcpSocket* socket = transmitters.nextPendingConnection()) {
            connect(socket, &QTcpSocket::readyRead, this, [this, socket] {
                while (socket->canReadLine())
                    onTransmitterLine(socket, socket->readLine().trimmed());
            });
        }
    });
    connect(&rest, &QTcpServer::newConnection, this, [this] {
        while (QTcpSocket* socket = rest.nextPendingConnection())
            connect(socket, &QTcpSocket::readyRead, this, [this, socket] { onRestData(socket); });
    });
}

void DapnetCore::onTransmitterLine(QTcpSocket* socket, const QByteArray& line)
{
    lines.append(line);
    if (line.startsWith('[')) {
        const bool good = line == goodLogin && refusals-- <= 0;
        socket->setProperty("refused", !good);
        socket->setProperty("queue", good ? QStringList{"2:1A2B", "3:+0000", "4:0123456789ABCDEF"}
                                          : QStringList{"7 Invalid credentials"});
    } else if (line != "+") {
        return;
    } else if (socket->property("refused").toBool()) {
        socket->disconnectFromHost();
        return;
    }
    QStringList queue = socket->property("queue").toStringList();
    socket->setProperty("ready", queue.isEmpty());
    if (!queue.isEmpty())
        socket->write(queue.takeFirst().toLatin1() + "\r\n");
    socket->setProperty("queue", queue);
}

void DapnetCore::send(const QByteArray& line)
{
    for (QTcpSocket* socket : transmitters.findChildren<QTcpSocket*>()) {
        if (socket->property("ready").toBool() && socket->state() == QAbstractSocket::ConnectedState)
            socket->write(line + "\r\n");
    }
}

void DapnetCore::onRestData(QTcpSocket* socket)
{
    const QByteArray request = socket->property("request").toByteArray() + socket->readAll();
    socket->setProperty("request", request);
    const qsizetype headEnd = request.indexOf("\r\n\r\n");
    // Qt writes the header names as these are spelt.
    const auto header = [&request](const QByteArray& name) {
        const qsizetype at = request.indexOf("\r\n" + name + ": ") + name.size() + 4;
        return request.mid(at, request.indexOf("\r\n", at) - at);
    };
    const qsizetype length = header("Content-Length").toLongLong();
    if (headEnd < 0 || request.size() < headEnd + 4 + length)
        return;
    calls.append(request.mid(headEnd + 4, length));
    const bool good = request.startsWith("POST /api/calls ") && header("Authorization") == goodAuthorization;
    const QByteArray body = good ? calls.last() : QByteArray("Unauthorized");
    socket->write((good ? "HTTP/1.1 201 Created" : "HTTP/1.1 401 Unauthorized") +
                  QByteArray("\r\nContent-Type: application/json\r\nConnection: close\r\nContent-Length: ") +
                  QByteArray::number(body.size()) + "\r\n\r\n" + body);
    socket->disconnectFromHost();
}
