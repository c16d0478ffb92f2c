#pragma once

#include <QObject>
#include <QString>

namespace zl::aprs {

class AprsClient;

// Carries messages between APRS-IS and DMR short messages: a message for this station on APRS-IS
// goes to the operator's own radio, and a short message "CALL text" to the bridge talk group goes
// out on APRS-IS. No loop: what comes in must be on the talk group, what goes out is to a radio.
class DmrBridge : public QObject {
    Q_OBJECT

public:
    explicit DmrBridge(AprsClient* client, QObject* parent = nullptr);

    void bridgeToDmr(const QString& from, const QString& body);

signals:
    // A short message went out on APRS-IS as a tracked message.
    void sentToAprs(const QString& msgId, const QString& dest, const QString& text, uint viaSource);

private:
    void onDmrSms(uint srcId, uint dstId, const QString& text);

    AprsClient* aprs;
};

} // namespace zl::aprs
