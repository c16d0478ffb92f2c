#include "IaxMessages.h"

#include "IaxFrame.h"

#include <QCryptographicHash>
#include <QtEndian>

namespace zl::iax {

namespace {

QByteArray u32(quint32 value)
{
    QByteArray out(4, '\0');
    qToBigEndian(value, out.data());
    return out;
}

} // namespace

QByteArray newPayload(const QString& node, const QString& callsign, const QString& username,
                      const QByteArray& callToken)
{
    QByteArray payload;
    appendIe(payload, Ie::Version, QByteArray("\x00\x02", 2));
    appendIe(payload, Ie::CalledNumber, node.toUtf8());
    appendIe(payload, Ie::CallingNumber, node.toUtf8());
    if (!callsign.isEmpty())
        appendIe(payload, Ie::CallingName, callsign.toUtf8());
    appendIe(payload, Ie::Username, username.toUtf8());
    appendIe(payload, Ie::Format, u32(kFormatMuLaw));
    appendIe(payload, Ie::Capability, u32(kFormatMuLaw));
    appendIe(payload, Ie::CallToken, callToken);
    return payload;
}

QByteArray authRepPayload(const QByteArray& challenge, const QString& password)
{
    const QByteArray digest = QCryptographicHash::hash(challenge + password.toUtf8(), QCryptographicHash::Md5);
    QByteArray payload;
    appendIe(payload, Ie::Md5Result, digest.toHex());
    return payload;
}

QByteArray hangupPayload(const QString& cause)
{
    QByteArray payload;
    appendIe(payload, Ie::Cause, cause.toUtf8());
    return payload;
}

} // namespace zl::iax
