#pragma once

#include "WebServer.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QStringList>

#include <memory>

// TGIF as a hotspot's owner meets it, over TLS: the public sessions list, the self-care page's
// socket.io endpoint (Engine.IO 3 long polling; the api_token in the handshake), the sign-in and
// profile pages with their session cookie, and the server's plain-HTTP side port for talkgroups.
class TgifServer : public WebServer {
    Q_OBJECT

public:
    struct Session {
        quint32 hotspot = 0;
        quint32 ts1 = 0;
        quint32 ts2 = 0;
    };

    TgifServer(const QByteArray& certPem, const QByteArray& keyPem);
    quint16 sidePort() const { return side->port(); }

    QList<Session> sessions;
    QString callsign = QStringLiteral("XX0ABC");
    QString password;
    QString apiToken;
    bool answerSocket = true; // false: polls are held until the client gives up
    // The custom scan: what scan_config_read.php answers, and the form token of scan_config.php,
    // which the site changes now and then (a form sent with an old one is sent to the sign-in).
    QJsonObject scan{{"dwellSeconds", 15}, {"priorities", QJsonObject{{"91", 2}, {"3100", 1}, {"x", 3}}}};
    QString csrf = QStringLiteral("c0ffee01");
    QStringList events; // socket.io events received, in order

private:
    Reply answer(const Request& request);
    Reply answerSocketIo(const Request& request);
    Reply answerSide(const Request& request);
    Reply answerScan(const Request& request, const QString& path);
    QJsonArray sessionList(bool selfCare) const;

    std::unique_ptr<WebServer> side;
    QHash<QString, QStringList> pending; // Engine.IO session id → packets for its next poll
    int nextSid = 1;
};
