#pragma once

#include "app/PolledUdpLink.h"

namespace zl::ysf {

// The UDP link to one YSF reflector: polls it every 5 s, reports when it has answered, and
// passes 155-byte YSFD datagrams both ways without looking into them. A reflector that falls
// silent stays linked; the page decides when to give up.
class YsfNetwork : public zl::PolledUdpLink {
    Q_OBJECT

public:
    explicit YsfNetwork(const QString& callsign, const QString& options = {}, QObject* parent = nullptr);
    ~YsfNetwork() override;

    bool connectTo(const QString& host, quint16 port = 42000);
    // Frames go out whether or not the reflector has answered yet.
    void sendFrame(const QByteArray& ysfd155);

protected:
    QByteArray pollDatagram() const override;
    QByteArray unlinkDatagram() const override;
    void onDatagram(const QByteArray& data, const QHostAddress& from) override;

private:
    QString options;
    bool optionSent = false;
};

} // namespace zl::ysf
