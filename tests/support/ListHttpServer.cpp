#include "ListHttpServer.h"

#include <QTcpSocket>

namespace {

QByteArray response(const QByteArray& status, const QByteArray& type, const QByteArray& body, qsizetype announced)
{
    return "HTTP/1.1 " + status + "\r\nContent-Type: " + type + "\r\nContent-Length: " + QByteArray::number(announced) +
           "\r\nConnection: close\r\n\r\n" + body;
}

} // namespace

ListHttpServer::ListHttpServer(QObject* parent) : QObject(parent)
{
    connect(&server, &QTcpServer::newConnection, this, &ListHttpServer::onNewConnection);
    server.listen(QHostAddress::LocalHost);
}

QString ListHttpServer::baseUrl() const
{
    return QStringLiteral("http://127.0.0.1:%1").arg(server.serverPort());
}

void ListHttpServer::setBody(const QString& path, const QByteArray& body)
{
    bodies.insert(path, body);
}

void ListHttpServer::onNewConnection()
{
    while (QTcpSocket* socket = server.nextPendingConnection()) {
        socket->setParent(this);
        connect(socket, &QTcpSocket::readyRead, this, [this, socket] {
            // One request per connection; its first line is all that matters here.
            if (!socket->property("head").toByteArray().isEmpty())
                return;
            const QByteArray head = socket->peek(8192);
            if (!head.contains("\r\n\r\n"))
                return;
            socket->setProperty("head", head);
            const QList<QByteArray> line = head.left(head.indexOf("\r\n")).split(' ');
            answer(socket, line.size() >= 2 ? QString::fromLatin1(line[1]) : QString());
        });
        connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
    }
}

void ListHttpServer::answer(QTcpSocket* socket, const QString& path)
{
    requests.append(path);
    emit requested(path);
    const QByteArray body = bodies.value(path);
    switch (answers.value(path, bodies.contains(path) ? Answer::Serve : Answer::NotFound)) {
    case Answer::Serve:
        socket->write(response("200 OK", "text/plain; charset=utf-8", body, body.size()));
        break;
    case Answer::NotFound:
        socket->write(response("404 Not Found", "text/plain", "not found", 9));
        break;
    case Answer::Stall:
        return;
    case Answer::HtmlPage: {
        const QByteArray page = "<!DOCTYPE html>\n<html><head><title>Just a moment...</title></head>"
                                "<body>Checking your browser before accessing the site.</body></html>\n";
        socket->write(response("200 OK", "text/html; charset=UTF-8", page, page.size()));
        break;
    }
    case Answer::CutShort:
        socket->write(response("200 OK", "text/plain; charset=utf-8", body.left(body.size() / 2), body.size()));
        socket->flush();
        socket->abort();
        return;
    }
    socket->disconnectFromHost();
}
