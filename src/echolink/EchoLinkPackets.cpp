#include "EchoLinkPackets.h"

namespace zl::echolink {

namespace {

const char kReportHeader[8] = {char(0xC0), char(0xC9), 0x00, 0x01, 0x00, 0x00, 0x00, 0x00};

void appendU16(QByteArray& out, quint16 value)
{
    out.append(char(value >> 8));
    out.append(char(value & 0xFF));
}

void appendItem(QByteArray& out, quint8 type, const QByteArray& value)
{
    out.append(char(type));
    out.append(char(qMin<qsizetype>(value.size(), 255)));
    out.append(value.left(255));
}

// Pads the packet behind the report header to whole 32-bit words and writes the word count
// minus one, as RTCP does.
QByteArray finishControlPacket(QByteArray packet)
{
    while ((packet.size() - 8) % 4 != 0)
        packet.append('\0');
    const quint16 words = quint16((packet.size() - 8) / 4 - 1);
    packet[10] = char(words >> 8);
    packet[11] = char(words & 0xFF);
    return packet;
}

QByteArray controlPacket(quint8 kind)
{
    QByteArray packet(kReportHeader, sizeof kReportHeader);
    packet.append(char(0xC1));
    packet.append(char(kind));
    packet.append(QByteArray(6, '\0')); // length, written last, and SSRC
    return packet;
}

QString textFrom(const QByteArray& datagram, qsizetype offset)
{
    qsizetype end = datagram.indexOf('\0', 6);
    if (end < 0)
        end = datagram.size();
    QByteArray text = datagram.mid(offset, qMax<qsizetype>(0, end - offset));
    text.replace('\r', '\n');
    return QString::fromUtf8(text);
}

} // namespace

QByteArray audioPacket(quint16 sequence, const QByteArray& gsmFrames)
{
    QByteArray packet;
    packet.reserve(kAudioHeaderBytes + gsmFrames.size());
    packet.append(char(0xC0));
    packet.append(char(3));
    appendU16(packet, sequence);
    packet.append(QByteArray(8, '\0'));
    packet.append(gsmFrames);
    return packet;
}

QByteArray sdesPacket(const QString& callsign, const QString& name)
{
    QByteArray packet = controlPacket(kRtcpSdes);
    appendItem(packet, 1, "CALLSIGN");
    appendItem(packet, 2, (callsign.leftJustified(15, QLatin1Char(' ')) + name).toLatin1());
    appendItem(packet, 3, "CALLSIGN");
    appendItem(packet, 4, "08:30");
    packet.append('\0');
    return finishControlPacket(packet);
}

QByteArray byePacket()
{
    QByteArray packet = controlPacket(kRtcpBye);
    appendItem(packet, 0, "jan2002");
    return finishControlPacket(packet);
}

QByteArray infoPacket(const QString& description)
{
    QByteArray text = description.toUtf8();
    text.replace('\n', '\r');
    return QByteArray("oNDATA\r") + text + '\0';
}

QByteArray chatPacket(const QString& callsign, const QString& text)
{
    return QByteArray("oNDATA") + callsign.toUtf8() + '>' + text.toUtf8() + "\r\n" + '\0';
}

TextMessage parseTextPacket(const QByteArray& datagram)
{
    TextMessage message;
    if (datagram.size() <= 6 || datagram.mid(1, 5) != "NDATA")
        return message;
    if (datagram.at(6) == '\r') {
        message.kind = TextMessage::Kind::Info;
        message.text = textFrom(datagram, 7);
    } else {
        message.kind = TextMessage::Kind::Chat;
        message.text = textFrom(datagram, 6).trimmed();
    }
    return message;
}

QString sdesCallsign(const QByteArray& datagram)
{
    QString callsign;
    for (qsizetype at = 16; at + 2 <= datagram.size();) {
        const quint8 type = quint8(datagram.at(at));
        const quint8 length = quint8(datagram.at(at + 1));
        if (type == 0 || at + 2 + length > datagram.size())
            break;
        if (type == 2) {
            const QString text = QString::fromLatin1(datagram.mid(at + 2, length)).trimmed();
            callsign = text.section(QLatin1Char(' '), 0, 0).toUpper();
            break;
        }
        at += 2 + length;
    }
    return callsign;
}

} // namespace zl::echolink
