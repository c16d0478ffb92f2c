#pragma once

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QObject>
#include <QString>

#include <functional>

class QTcpServer;
class QTcpSocket;

// A loopback web server, over TLS when given a certificate (as the networks' sites and APIs are)
// or plain HTTP. Each request is answered by a handler, one request per connection, as
// "Connection: close" servers do.
class WebServer : public QObject {
    Q_OBJECT

public:
    struct Request {
        QByteArray method;
        QString path;
        QHash<QByteArray, QByteArray> headers; // names in lower case
        QByteArray body;
    };
    struct Reply {
        int status = 200;
        QByteArray contentType = "application/json";
        QByteArray body;
        QList<std::pair<QByteArray, QByteArray>> headers;
        bool stall = false; // no answer: the client's wait runs out
    };
    using Handler = std::function<Reply(const Request&)>;

    WebServer(Handler handler, const QByteArray& certPem = {}, const QByteArray& keyPem = {},
              QObject* parent = nullptr);
    quint16 port() const;
    // The origin to configure: "https://127.0.0.1:<port>" (or http).
    QString origin() const;

    // Makes this process's clients trust certificates signed by the authority.
    static void trustAuthority(const QByteArray& caPem);

    QList<Request> requests;

private:
    void onReadyRead(QTcpSocket* socket);

    Handler handler;
    QTcpServer* server;
    bool tls;
};
