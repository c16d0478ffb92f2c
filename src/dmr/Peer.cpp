#include "Peer.h"

#include "app/AssetPath.h"
#include "app/Config.h"
#include "app/Identity.h"

#include <QDateTime>
#include <QFile>
#include <QJsonArray>
#include <QRegularExpression>

#include <algorithm>

namespace zl::dmr {

namespace {

const QString kDmr = QStringLiteral("dmr");
const QString kPeers = QStringLiteral("peers");
constexpr quint16 kDefaultPort = 62031;

struct TextField {
    const char* key;
    QString Peer::*member;
};

// Strings written only when not empty, in declaration order.
const TextField kOptionalTexts[] = {
    {"identity_label", &Peer::identity_label},
    {"callsign_override", &Peer::callsign_override},
    {"dmrid_override", &Peer::dmrid_override},
    {"essid_override", &Peer::essid_override},
    {"network", &Peer::network},
    {"server", &Peer::server},
    {"password", &Peer::password},
    {"api_key", &Peer::api_key},
    {"api_key_ref", &Peer::api_key_ref},
    {"options", &Peer::options},
    {"location_name", &Peer::location_name},
    {"description", &Peer::description},
    {"url", &Peer::url},
    {"version_string", &Peer::version_string},
    {"software_name", &Peer::software_name},
};

struct ListField {
    const char* key;
    QStringList Peer::*member;
};

const ListField kLists[] = {
    {"tg_rewrite", &Peer::tg_rewrite},         {"pc_rewrite", &Peer::pc_rewrite},
    {"type_rewrite", &Peer::type_rewrite},     {"src_rewrite", &Peer::src_rewrite},
    {"tg_dyn_rewrite", &Peer::tg_dyn_rewrite},
};

struct FlagField {
    const char* key;
    bool Peer::*member;
};

// Flags that default to false and are written only when true.
const FlagField kFlags[] = {
    {"use_api_key", &Peer::use_api_key},
    {"duplex", &Peer::duplex},
    {"pass_all_tg1", &Peer::pass_all_tg1},
    {"pass_all_tg2", &Peer::pass_all_tg2},
    {"pass_all_pc1", &Peer::pass_all_pc1},
    {"pass_all_pc2", &Peer::pass_all_pc2},
    {"debug", &Peer::debug},
    {"auto_connect", &Peer::auto_connect},
    {"priority", &Peer::priority},
    {"private_call", &Peer::private_call},
};

quint32 readU32(const QJsonObject& o, const char* key, quint32 fallback)
{
    const QJsonValue v = o.value(QLatin1String(key));
    return v.isUndefined() ? fallback : quint32(v.toInteger(fallback));
}

int readInt(const QJsonObject& o, const char* key, int fallback)
{
    return o.value(QLatin1String(key)).toInt(fallback);
}

// Talkgroup of a slot; old files have only a boolean "slot active".
quint32 readSlotTg(const QJsonObject& o, const char* tgKey, const char* activeKey)
{
    const QJsonValue tg = o.value(QLatin1String(tgKey));
    if (!tg.isUndefined())
        return quint32(tg.toInteger(0));
    const QJsonValue active = o.value(QLatin1String(activeKey));
    if (!active.isUndefined())
        return active.toBool(true) ? 1 : 0;
    return 1;
}

quint32 parseU32(const QString& text)
{
    bool ok = false;
    const uint value = text.toUInt(&ok, 10);
    return ok ? value : 0;
}

struct IdParts {
    QString callsign;
    QString dmrId;
    QString essid;
};

// Overrides first; the named identity fills what they leave empty.
IdParts idParts(const Peer& peer)
{
    IdParts parts{peer.callsign_override, peer.dmrid_override, peer.essid_override};
    if (peer.identity_label.isEmpty() ||
        (!parts.callsign.isEmpty() && !parts.dmrId.isEmpty() && !parts.essid.isEmpty()))
        return parts;
    for (const Identity& identity : identities(kDmr)) {
        if (identity.label != peer.identity_label)
            continue;
        if (parts.callsign.isEmpty())
            parts.callsign = identity.callsign;
        if (parts.dmrId.isEmpty())
            parts.dmrId = identity.id_field;
        if (parts.essid.isEmpty())
            parts.essid = identity.essid;
        break;
    }
    return parts;
}

// The element of a named-key list with exactly this name, or an empty object.
QJsonObject namedKey(const QJsonObject& section, const QString& list, const QString& name)
{
    for (const QJsonValue& value : section.value(list).toArray()) {
        const QJsonObject element = value.toObject();
        if (element.value(QStringLiteral("name")).toString() == name)
            return element;
    }
    return {};
}

bool masterLess(const MasterHost& a, const MasterHost& b)
{
    if (a.label != b.label)
        return a.label < b.label;
    return a.id.toULongLong() < b.id.toULongLong();
}

struct Prefix {
    const char* text;
    const char* group;
    bool keepPrefix;
};

const Prefix kPrefixes[] = {
    {"BM_", "Brandmeister", false},
    {"TGIF", "TGIF", true},
    {"HB_", "HBLink", false},
    {"DMR+_IPSC2-", "IPSC2 / DMR+", false},
    {"FreeDMR_", "FreeDMR", false},
    {"FD_ADN_", "ADN Systems", false},
    {"SystemX_", "FreeStar / SystemX", false},
};

} // namespace

QJsonObject peerToJson(const Peer& peer)
{
    QJsonObject o;
    o.insert(QStringLiteral("label"), peer.label);
    for (const TextField& field : kOptionalTexts) {
        const QString& value = peer.*field.member;
        if (!value.isEmpty())
            o.insert(QLatin1String(field.key), value);
    }
    for (const ListField& field : kLists) {
        const QStringList& value = peer.*field.member;
        if (!value.isEmpty())
            o.insert(QLatin1String(field.key), QJsonArray::fromStringList(value));
    }
    for (const FlagField& field : kFlags) {
        if (peer.*field.member)
            o.insert(QLatin1String(field.key), true);
    }
    if (peer.local_port != 0)
        o.insert(QStringLiteral("local_port"), peer.local_port);
    o.insert(QStringLiteral("use_password"), peer.use_password);
    o.insert(QStringLiteral("rx_freq"), qint64(peer.rx_freq));
    o.insert(QStringLiteral("tx_freq"), qint64(peer.tx_freq));
    o.insert(QStringLiteral("power"), peer.power);
    o.insert(QStringLiteral("latitude"), double(peer.latitude));
    o.insert(QStringLiteral("longitude"), double(peer.longitude));
    o.insert(QStringLiteral("height"), peer.height);
    o.insert(QStringLiteral("color_code"), peer.color_code);
    o.insert(QStringLiteral("rx_jitter_ms"), peer.rx_jitter_ms);
    if (peer.ts1_tg != 0)
        o.insert(QStringLiteral("ts1_tg"), qint64(peer.ts1_tg));
    if (peer.ts2_tg != 0)
        o.insert(QStringLiteral("ts2_tg"), qint64(peer.ts2_tg));
    if (!peer.send_location)
        o.insert(QStringLiteral("send_location"), false);
    if (peer.priority_slot != 0)
        o.insert(QStringLiteral("priority_slot"), peer.priority_slot);
    if (peer.active_tg != 0)
        o.insert(QStringLiteral("active_tg"), qint64(peer.active_tg));
    return o;
}

Peer peerFromJson(const QJsonObject& o)
{
    Peer peer;
    peer.label = o.value(QStringLiteral("label")).toString();
    for (const TextField& field : kOptionalTexts)
        peer.*field.member = o.value(QLatin1String(field.key)).toString();
    for (const ListField& field : kLists) {
        QStringList list;
        for (const QJsonValue& line : o.value(QLatin1String(field.key)).toArray())
            list.append(line.toString());
        peer.*field.member = list;
    }
    for (const FlagField& field : kFlags)
        peer.*field.member = o.value(QLatin1String(field.key)).toBool(false);
    peer.use_password = o.value(QStringLiteral("use_password")).toBool(!peer.use_api_key);
    peer.local_port = readInt(o, "local_port", 0);
    peer.rx_freq = readU32(o, "rx_freq", 433000000);
    peer.tx_freq = readU32(o, "tx_freq", 433000000);
    peer.power = readInt(o, "power", 1);
    peer.latitude = float(o.value(QStringLiteral("latitude")).toDouble(0.0));
    peer.longitude = float(o.value(QStringLiteral("longitude")).toDouble(0.0));
    peer.height = readInt(o, "height", 0);
    peer.color_code = readInt(o, "color_code", 1);
    peer.rx_jitter_ms = readInt(o, "rx_jitter_ms", 120);
    peer.ts1_tg = readSlotTg(o, "ts1_tg", "ts1_active");
    peer.ts2_tg = readSlotTg(o, "ts2_tg", "ts2_active");
    peer.send_location = o.value(QStringLiteral("send_location")).toBool(true);
    peer.priority_slot = readInt(o, "priority_slot", 0);
    peer.active_tg = readU32(o, "active_tg", 0);
    return peer;
}

QList<Peer> loadPeers()
{
    QList<Peer> peers;
    for (const QJsonObject& object :
         configObjects(Config::instance().section(kDmr).value(kPeers).toArray(), QStringLiteral("dmr.peers")))
        peers.append(peerFromJson(object));
    return peers;
}

void savePeers(const QList<Peer>& peers)
{
    QJsonArray array;
    for (const Peer& peer : peers)
        array.append(peerToJson(peer));
    Config& config = Config::instance();
    QJsonObject section = config.section(kDmr);
    section.insert(kPeers, array);
    config.setSection(kDmr, section);
    config.save();
}

QString defaultPeerLabel()
{
    return Config::instance().section(kDmr).value(QStringLiteral("default_peer_label")).toString();
}

void setDefaultPeerLabel(const QString& label)
{
    Config& config = Config::instance();
    QJsonObject section = config.section(kDmr);
    section.insert(QStringLiteral("default_peer_label"), label);
    config.setSection(kDmr, section);
    config.save();
}

quint32 dmrId(const Peer& peer)
{
    return parseU32(idParts(peer).dmrId);
}

QString peerCallsign(const Peer& peer)
{
    return idParts(peer).callsign;
}

quint32 peerId(const Peer& peer)
{
    const IdParts parts = idParts(peer);
    bool ok = false;
    const quint32 id = parts.dmrId.toUInt(&ok, 10);
    if (!ok)
        return 0;
    return id * 100u + parseU32(parts.essid);
}

DmrPeerClient::Profile profileFor(const Peer& peer)
{
    DmrPeerClient::Profile p;
    p.label = peer.label;
    p.networkName = peer.network.isEmpty() ? QStringLiteral("Custom") : peer.network;

    const qsizetype colon = peer.server.lastIndexOf(QLatin1Char(':'));
    if (colon >= 1) {
        p.host = peer.server.left(colon);
        bool ok = false;
        const ushort port = peer.server.mid(colon + 1).toUShort(&ok, 10);
        p.port = ok && port != 0 ? port : kDefaultPort;
    } else {
        p.host = peer.server;
        p.port = kDefaultPort;
    }

    p.callsign = idParts(peer).callsign;
    p.peerId = peerId(peer);

    QString password;
    if (!peer.use_api_key) {
        password = peer.password;
    } else {
        const QString key = resolveApiKey(peer);
        if (peer.use_password)
            password = peer.password.isEmpty() ? key : peer.password;
        else
            password = key.isEmpty() ? peer.password : key;
    }
    p.password = password.isEmpty() ? QStringLiteral("hunter99") : password;

    p.options = peer.options;
    p.rxFreq = peer.rx_freq;
    p.txFreq = peer.tx_freq;
    p.power = quint8(peer.power);
    p.colorCode = quint8(peer.color_code);
    p.rxJitterMs = peer.rx_jitter_ms;
    p.duplex = peer.duplex;
    p.ts1Tg = peer.ts1_tg;
    p.ts2Tg = peer.ts2_tg;
    p.latitude = peer.latitude;
    p.longitude = peer.longitude;
    p.height = quint16(peer.height);
    p.locationName = peer.location_name;
    p.description = peer.description;
    p.url = peer.url;
    p.versionString = peer.version_string;
    p.softwareName = peer.software_name;
    return p;
}

QString resolveApiKey(const Peer& peer)
{
    const QJsonObject section = Config::instance().section(kDmr);
    if (peer.api_key_ref == QLatin1String("peer"))
        return peer.api_key.trimmed();
    const qsizetype colon = peer.api_key_ref.indexOf(QLatin1Char(':'));
    if (colon >= 0) {
        const QString list = peer.api_key_ref.left(colon) == QLatin1String("tgif") ? QStringLiteral("tgif_api_keys")
                                                                                   : QStringLiteral("bm_api_keys");
        const QJsonObject element = namedKey(section, list, peer.api_key_ref.mid(colon + 1));
        if (!element.isEmpty())
            return element.value(QStringLiteral("key")).toString().trimmed();
    }
    QString byNetwork;
    if (peer.network.compare(QLatin1String("Brandmeister"), Qt::CaseInsensitive) == 0)
        byNetwork = section.value(QStringLiteral("bm_api_key")).toString().trimmed();
    else if (peer.network.compare(QLatin1String("TGIF"), Qt::CaseInsensitive) == 0)
        byNetwork = section.value(QStringLiteral("tgif_api_key")).toString().trimmed();
    if (!byNetwork.isEmpty())
        return byNetwork;
    return peer.api_key.trimmed();
}

TgifCredentials tgifCredentials(const Peer& peer)
{
    if (!peer.api_key_ref.startsWith(QLatin1String("tgif:")))
        return {};
    const QString name = peer.api_key_ref.mid(peer.api_key_ref.indexOf(QLatin1Char(':')) + 1);
    const QJsonObject element = namedKey(Config::instance().section(kDmr), QStringLiteral("tgif_api_keys"), name);
    if (element.isEmpty())
        return {};
    TgifCredentials c;
    c.name = element.value(QStringLiteral("name")).toString();
    c.callsign = element.value(QStringLiteral("callsign")).toString().trimmed().toUpper();
    c.password = element.value(QStringLiteral("password")).toString();
    c.token = element.value(QStringLiteral("token")).toString().trimmed();
    if (c.token.isEmpty())
        c.token = element.value(QStringLiteral("key")).toString();
    if (c.callsign.isEmpty())
        c.callsign = idParts(peer).callsign.trimmed().toUpper();
    return c;
}

void storeTgifToken(const QString& name, const QString& token)
{
    Config& config = Config::instance();
    QJsonObject section = config.section(kDmr);
    QJsonArray keys = section.value(QStringLiteral("tgif_api_keys")).toArray();
    bool found = false;
    for (qsizetype i = 0; i < keys.size(); ++i) {
        QJsonObject element = keys.at(i).toObject();
        if (element.value(QStringLiteral("name")).toString() != name)
            continue;
        element.insert(QStringLiteral("token"), token);
        element.insert(QStringLiteral("key"), token);
        element.insert(QStringLiteral("token_ts"), QDateTime::currentSecsSinceEpoch());
        keys.replace(i, element);
        found = true;
        break;
    }
    section.insert(QStringLiteral("tgif_api_keys"), keys);
    if (found)
        section.insert(QStringLiteral("tgif_api_key"), token);
    config.setSectionSilent(kDmr, section);
    config.save();
}

QList<BandOffset> bandOffsets()
{
    QList<BandOffset> bands;
    for (const QJsonValue& value : Config::instance().section(kDmr).value(QStringLiteral("band_offsets")).toArray()) {
        const QJsonObject o = value.toObject();
        bands.append({o.value(QStringLiteral("label")).toString(), readU32(o, "rx_min", 0), readU32(o, "rx_max", 0),
                      qint32(o.value(QStringLiteral("offset_hz")).toInteger(0))});
    }
    if (bands.isEmpty()) {
        bands.append({QStringLiteral("2m"), 144000000, 148000000, -600000});
        bands.append({QStringLiteral("70cm"), 430000000, 440000000, -2000000});
    }
    return bands;
}

void setBandOffsets(const QList<BandOffset>& bands)
{
    QJsonArray array;
    for (const BandOffset& band : bands) {
        array.append(QJsonObject{{QStringLiteral("label"), band.label},
                                 {QStringLiteral("rx_min"), qint64(band.rx_min)},
                                 {QStringLiteral("rx_max"), qint64(band.rx_max)},
                                 {QStringLiteral("offset_hz"), band.offset_hz}});
    }
    Config& config = Config::instance();
    QJsonObject section = config.section(kDmr);
    section.insert(QStringLiteral("band_offsets"), array);
    config.setSection(kDmr, section);
    config.save();
}

int offsetForRx(quint32 rxHz)
{
    for (const BandOffset& band : bandOffsets()) {
        if (band.rx_min <= rxHz && rxHz <= band.rx_max)
            return band.offset_hz;
    }
    return 0;
}

QHash<QString, QList<MasterHost>> parseMasterHosts(const QByteArray& text)
{
    static const QRegularExpression blanks(QStringLiteral("\\s+"));
    QHash<QString, QList<MasterHost>> table;
    for (const QByteArray& rawLine : text.split('\n')) {
        const QString line = QString::fromUtf8(rawLine).trimmed();
        if (line.isEmpty() || line.startsWith(QLatin1Char('#')))
            continue;
        const QStringList fields = line.split(blanks, Qt::SkipEmptyParts);
        if (fields.size() < 5 || fields.at(2).isEmpty())
            continue;
        const QString& name = fields.at(0);
        for (const Prefix& prefix : kPrefixes) {
            const QLatin1String start(prefix.text);
            if (!name.startsWith(start))
                continue;
            QString label = prefix.keepPrefix ? name : name.mid(start.size());
            if (qstrcmp(prefix.text, "BM_") == 0) {
                const qsizetype underscore = label.indexOf(QLatin1Char('_'));
                if (underscore > 0)
                    label = label.mid(underscore + 1);
            }
            label.replace(QLatin1Char('_'), QLatin1Char(' '));
            const QString id = fields.at(1) == QLatin1String("0000") ? QString() : fields.at(1);
            table[QLatin1String(prefix.group)].append({label, id, fields.at(2) + QLatin1Char(':') + fields.at(4)});
            break;
        }
    }
    for (QList<MasterHost>& hosts : table)
        std::stable_sort(hosts.begin(), hosts.end(), masterLess);
    return table;
}

QList<MasterHost> masterHosts(const QString& group)
{
    // Three networks are not in the hosts file and get one entry each. Their master host names are
    // not verified yet, so the address stays empty and such a peer reports a missing host.
    if (group == QLatin1String("Phoenix-UK"))
        return {{QStringLiteral("Phoenix-UK Fusion"), QString(), QString()}};
    if (group == QLatin1String("HamUnited"))
        return {{QStringLiteral("HamUnited primary"), QString(), QString()}};
    if (group == QLatin1String("AmCom"))
        return {{QStringLiteral("AmCom 3101"), QStringLiteral("3101"), QString()}};

    static const QHash<QString, QList<MasterHost>> table = [] {
        const QString path = assetPath(QStringLiteral("DMR_Hosts.txt"));
        QFile file(path);
        if (path.isEmpty() || !file.open(QIODevice::ReadOnly))
            return QHash<QString, QList<MasterHost>>();
        return parseMasterHosts(file.readAll());
    }();
    return table.value(group);
}

} // namespace zl::dmr
