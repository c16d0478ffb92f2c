#pragma once

#include <QByteArray>
#include <QHash>
#include <QObject>
#include <QStringList>
#include <QTcpServer>

// A loopback web server for the public directory lists. Each path answers with its body, as
// the public servers do (HTTP/1.1, Content-Length, connection closed after the answer), or
// fails in one of the ways those servers have been seen to.
class ListHttpServer : public QObject {
    Q_OBJECT

public:
    enum class Answer {
        Serve,    // 200 and the body
        NotFound, // 404
        Stall,    // reads the request and never answers
        HtmlPage, // 200 with a web page in place of the list, as a captive portal or CDN does
        CutShort, // announces the whole body, sends half of it and closes
    };

    explicit ListHttpServer(QObject* parent = nullptr);

    // "http://127.0.0.1:<port>", the base URL to configure.
    QString baseUrl() const;
    void setBody(const QString& path, const QByteArray& body);
    void setAnswer(const QString& path, Answer answer) { answers.insert(path, answer); }
    int requestCount(const QString& path) const { return int(requests.count(path)); }

    QStringList requests; // every path asked for, in order

signals:
    void requested(const QString& path);

private:
    void onNewConnection();
    void answer(class QTcpSocket* socket, const QString& path);

    QTcpServer server;
    QHash<QString, QByteArray> bodies;
    QHash<QString, Answer> answers;
};
