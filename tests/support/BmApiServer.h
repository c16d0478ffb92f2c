#pragma once

#include "WebServer.h"

#include <QJsonArray>

// BrandMeister's device REST interface for one hotspot, over TLS: bearer authorisation (401 for
// another key), 404 for another device, the profile in the service's JSON shape, and the static
// talkgroup and drop actions changing it.
class BmApiServer : public WebServer {
    Q_OBJECT

public:
    BmApiServer(const QByteArray& certPem, const QByteArray& keyPem, const QString& apiKey, quint32 device);

    QJsonArray staticSubscriptions;
    QJsonArray dynamicSubscriptions;
    QJsonArray timedSubscriptions;
    // Set: every request is answered with this page instead, as a captive portal or a CDN error does.
    QByteArray htmlInstead;

private:
    Reply answer(const Request& request);

    QString key;
    quint32 deviceId;
};
