#include "svx/SvxWire.h"

#include <QtEndian>

#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <algorithm>

namespace zl::svx {

qsizetype takeFrames(const QByteArray& buffer, QList<Frame>& out)
{
    qsizetype pos = 0;
    while (buffer.size() - pos >= 4) {
        const quint32 length = qFromBigEndian<quint32>(buffer.constData() + pos);
        if (length < kMinFrameLength || length > kMaxFrameLength)
            break;
        if (buffer.size() - pos - 4 < qsizetype(length))
            break;
        Frame f;
        f.type = qFromBigEndian<quint16>(buffer.constData() + pos + 4);
        f.payload = buffer.mid(pos + 6, qsizetype(length) - 2);
        out.append(f);
        pos += 4 + qsizetype(length);
    }
    return pos;
}

QByteArray encodeFrame(quint16 type, const QByteArray& payload)
{
    WireWriter w;
    w.u32(quint32(payload.size() + 2)).u16(type);
    return w.data() + payload;
}

bool WireReader::need(qsizetype n)
{
    if (!good || remaining() < n) {
        good = false;
        return false;
    }
    return true;
}

quint16 WireReader::u16()
{
    if (!need(2))
        return 0;
    const quint16 v = qFromBigEndian<quint16>(data.constData() + pos);
    pos += 2;
    return v;
}

quint32 WireReader::u32()
{
    if (!need(4))
        return 0;
    const quint32 v = qFromBigEndian<quint32>(data.constData() + pos);
    pos += 4;
    return v;
}

QByteArray WireReader::bytes()
{
    const quint16 n = u16();
    if (!need(n))
        return {};
    const QByteArray b = data.mid(pos, n);
    pos += n;
    return b;
}

WireWriter& WireWriter::u16(quint16 v)
{
    char b[2];
    qToBigEndian(v, b);
    out.append(b, 2);
    return *this;
}

WireWriter& WireWriter::u32(quint32 v)
{
    char b[4];
    qToBigEndian(v, b);
    out.append(b, 4);
    return *this;
}

WireWriter& WireWriter::bytes(const QByteArray& b)
{
    u16(quint16(b.size()));
    out.append(b);
    return *this;
}

QByteArray encodeProtoVer(quint16 major, quint16 minor)
{
    return WireWriter().u16(major).u16(minor).data();
}

QByteArray encodeAuthResponse(const QString& callsign, const QByteArray& digest)
{
    return WireWriter().string(callsign).bytes(digest).data();
}

QByteArray encodeClientCsr(const QString& pem)
{
    return WireWriter().string(pem).data();
}

QByteArray encodeSelectTg(quint32 tg)
{
    return WireWriter().u32(tg).data();
}

QByteArray encodeTgMonitor(QList<quint32> tgs)
{
    std::sort(tgs.begin(), tgs.end());
    tgs.erase(std::unique(tgs.begin(), tgs.end()), tgs.end());
    WireWriter w;
    w.u16(quint16(tgs.size()));
    for (quint32 tg : std::as_const(tgs))
        w.u32(tg);
    return w.data();
}

QByteArray encodeNodeInfoV2(const QString& json)
{
    return WireWriter().string(json).data();
}

QByteArray encodeNodeInfoV3(const QByteArray& ivRand, const QByteArray& udpKey, const QString& json)
{
    return WireWriter().bytes(ivRand).bytes(udpKey).string(json).data();
}

std::optional<QByteArray> parseAuthChallenge(const QByteArray& payload)
{
    WireReader r(payload);
    const QByteArray challenge = r.bytes();
    if (!r.ok())
        return std::nullopt;
    return challenge;
}

QString parseError(const QByteArray& payload)
{
    WireReader r(payload);
    const QString reason = r.string();
    return r.ok() ? reason : QString();
}

namespace {

QStringList readListPrefix(WireReader& r)
{
    QStringList list;
    const quint16 count = r.u16();
    for (quint16 i = 0; r.ok() && i < count; ++i) {
        const QString s = r.string();
        if (r.ok())
            list.append(s);
    }
    return list;
}

} // namespace

std::optional<ServerInfo> parseServerInfo(const QByteArray& payload)
{
    if (payload.size() < 4)
        return std::nullopt;
    WireReader r(payload);
    ServerInfo info;
    r.u16(); // reserved
    info.clientId = r.u16();
    info.nodes = readListPrefix(r);
    if (r.ok())
        info.codecs = readListPrefix(r);
    return info;
}

std::optional<QStringList> parseNodeList(const QByteArray& payload)
{
    WireReader r(payload);
    const QStringList list = readListPrefix(r);
    if (!r.ok())
        return std::nullopt;
    return list;
}

std::optional<QString> parseString(const QByteArray& payload)
{
    WireReader r(payload);
    const QString s = r.string();
    if (!r.ok())
        return std::nullopt;
    return s;
}

std::optional<Talker> parseTalker(const QByteArray& payload)
{
    if (payload.size() < 4)
        return std::nullopt;
    WireReader r(payload);
    Talker t;
    t.tg = r.u32();
    t.callsign = r.string(); // missing or truncated: empty
    return t;
}

std::optional<quint16> parseProtoVerDowngrade(const QByteArray& payload)
{
    WireReader r(payload);
    const quint16 major = r.u16();
    r.u16(); // minor
    if (!r.ok())
        return std::nullopt;
    return major;
}

QByteArray hmacSha1(const QByteArray& key, const QByteArray& data)
{
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int len = 0;
    if (!HMAC(EVP_sha1(), key.constData(), int(key.size()), reinterpret_cast<const unsigned char*>(data.constData()),
              size_t(data.size()), digest, &len))
        return {};
    return QByteArray(reinterpret_cast<const char*>(digest), int(len));
}

} // namespace zl::svx
