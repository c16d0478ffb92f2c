#include "YsfNetwork.h"

#include "YsfFrame.h"

#include <QDebug>

namespace zl::ysf {

YsfNetwork::YsfNetwork(const QString& callsign, const QString& optionText, QObject* parent)
    : PolledUdpLink(QStringLiteral("YSF"), QStringLiteral("YsfNetwork"), callsign, parent), options(optionText)
{
}

YsfNetwork::~YsfNetwork()
{
    disconnectFrom();
}

bool YsfNetwork::connectTo(const QString& host, quint16 port)
{
    optionSent = false;
    return PolledUdpLink::connectTo(host, port);
}

void YsfNetwork::sendFrame(const QByteArray& ysfd155)
{
    if (ysfd155.size() == kYsfdSize)
        send(ysfd155);
}

QByteArray YsfNetwork::pollDatagram() const
{
    return buildYsfControl("YSFP", ownCallsign());
}

QByteArray YsfNetwork::unlinkDatagram() const
{
    return buildYsfControl("YSFU", ownCallsign());
}

void YsfNetwork::onDatagram(const QByteArray& data, const QHostAddress& from)
{
    if (!isLinked())
        qInfo() << "YsfNetwork: rx" << data.size() << "B tag" << data.left(4) << "from" << from;
    if (data.startsWith("YSFP")) {
        setLinked(true);
        if (!optionSent && !options.isEmpty()) {
            send(buildYsfOptions(ownCallsign(), options));
            optionSent = true;
        }
    } else if (data.startsWith("YSFD")) {
        // A YSFD does not count as an answer: only polls link.
        emit dataReceived(data.left(kYsfdSize));
    }
}

} // namespace zl::ysf
