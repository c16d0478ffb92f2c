#include "WebServer.h"

#include <QSslCertificate>
#include <QSslConfiguration>
#include <QSslKey>
#include <QSslServer>
#include <QSslSocket>

WebServer::WebServer(Handler answer, const QByteArray& certPem, const QByteArray& keyPem, QObject* parent)
    : QObject(parent), handler(std::move(answer)), tls(!certPem.isEmpty())
{
    if (tls) {
        auto* sslServer = new QSslServer(this);
        QSslConfiguration conf = QSslConfiguration::defaultConfiguration();
        conf.setLocalCertificate(QSslCertificate(certPem));
        conf.setPrivateKey(QSslKey(keyPem, QSsl::Rsa));
        conf.setPeerVerifyMode(QSslSocket::VerifyNone);
        sslServer->setSslConfiguration(conf);
        server = sslServer;
    } else {
        server = new QTcpServer(this);
    }
    connect(server, &QTcpServer::pendingConnectionAvailable, this, [this] {
        while (QTcpSocket* socket = server->nextPendingConnection()) {
            connect(socket, &QTcpSocket::readyRead, this, [this, socket] { onReadyRead(socket); });
            connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
        }
    });
    server->listen(QHostAddress::LocalHost);
}

quint16 WebServer::port() const
{
    return server->serverPort();
}

QString WebServer::origin() const
{
    return QStringLiteral("%1://127.0.0.1:%2").arg(tls ? "https" : "http").arg(port());
}

void WebServer::trustAuthority(const QByteArray& caPem)
{
    QSslConfiguration conf = QSslConfiguration::defaultConfiguration();
    conf.addCaCertificates(QSslCertificate::fromData(caPem));
    QSslConfiguration::setDefaultConfiguration(conf);
}

void WebServer::onReadyRead(QTcpSocket* socket)
{
    const QByteArray data = socket->peek(1 << 20);
    const qsizetype end = data.indexOf("\r\n\r\n");
    if (end < 0 || socket->property("answered").toBool())
        return;
    Request request;
    const QList<QByteArray> lines = data.left(end).split('\n');
    const QList<QByteArray> first = lines.value(0).trimmed().split(' ');
    request.method = first.value(0);
    request.path = QString::fromLatin1(first.value(1));
    for (qsizetype i = 1; i < lines.size(); ++i) {
        const qsizetype colon = lines[i].indexOf(':');
        if (colon > 0)
            request.headers.insert(lines[i].left(colon).trimmed().toLower(), lines[i].mid(colon + 1).trimmed());
    }
    const qsizetype length = request.headers.value("content-length").toLongLong();
    if (data.size() < end + 4 + length)
        return;
    request.body = data.mid(end + 4, length);
    socket->setProperty("answered", true);
    requests.append(request);

    const Reply reply = handler(request);
    if (reply.stall)
        return;
    QByteArray out = "HTTP/1.1 " + QByteArray::number(reply.status) + " X\r\nContent-Type: " + reply.contentType +
                     "\r\nContent-Length: " + QByteArray::number(reply.body.size()) + "\r\nConnection: close\r\n";
    for (const auto& [name, value] : reply.headers)
        out += name + ": " + value + "\r\n";
    socket->write(out + "\r\n" + reply.body);
    socket->disconnectFromHost();
}
