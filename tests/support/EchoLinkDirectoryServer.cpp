#include "EchoLinkDirectoryServer.h"

#include <QTcpSocket>

EchoLinkDirectoryServer::EchoLinkDirectoryServer(const QHostAddress& address, quint16 port, QObject* parent)
    : QObject(parent)
{
    server.listen(address, port);
    connect(&server, &QTcpServer::newConnection, this, &EchoLinkDirectoryServer::onNewConnection);
}

QByteArray EchoLinkDirectoryServer::listReply(const QList<QList<QByteArray>>& records)
{
    QByteArray text = "@@@\n" + QByteArray::number(records.size()) + "\n";
    for (const QList<QByteArray>& record : records)
        for (const QByteArray& line : record)
            text += line + "\n";
    return text + "+++\n";
}

void EchoLinkDirectoryServer::onNewConnection()
{
    while (QTcpSocket* socket = server.nextPendingConnection()) {
        connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
        connect(socket, &QTcpSocket::readyRead, this, [this, socket] {
            // A request may come in pieces; it is whole with its third CR (registration) or as "s".
            QByteArray request = socket->property("partial").toByteArray() + socket->readAll();
            if (request.startsWith('l') && request.count('\r') < 3) {
                socket->setProperty("partial", request);
                return;
            }
            socket->setProperty("partial", QByteArray());
            requests.append(request);
            // A registration ends with its third CR; the list request is the single "s".
            if (request.startsWith('l'))
                socket->write(registrationReply);
            else if (request == "s")
                socket->write(stationList);
            socket->flush();
            if (!keepOpen)
                socket->disconnectFromHost();
        });
    }
}
