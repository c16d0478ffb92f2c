#pragma once

#include "dmr/DmrPeerClient.h"

#include <QHash>
#include <QJsonObject>
#include <QList>
#include <QString>
#include <QStringList>

namespace zl::dmr {

// One configured connection to one DMR master, stored in dmr.peers of the configuration.
// Field names are the JSON keys.
struct Peer {
    QString label;
    QString identity_label;
    QString callsign_override;
    QString dmrid_override;
    QString essid_override;
    QString network;
    QString server;
    int local_port = 0;
    QString password;
    QString api_key;
    QString api_key_ref;
    bool use_password = true;
    bool use_api_key = false;
    QString options;
    quint32 rx_freq = 433000000;
    quint32 tx_freq = 433000000;
    int power = 1;
    float latitude = 0.0f;
    float longitude = 0.0f;
    int height = 0;
    QString location_name;
    QString description;
    QString url;
    int color_code = 1;
    bool duplex = false;
    int rx_jitter_ms = 120;
    quint32 ts1_tg = 1;
    quint32 ts2_tg = 1;
    QString version_string;
    QString software_name;
    QStringList tg_rewrite;
    QStringList pc_rewrite;
    QStringList type_rewrite;
    QStringList src_rewrite;
    QStringList tg_dyn_rewrite;
    bool pass_all_tg1 = false;
    bool pass_all_tg2 = false;
    bool pass_all_pc1 = false;
    bool pass_all_pc2 = false;
    bool send_location = true;
    bool debug = false;
    bool auto_connect = false;
    bool priority = false;
    int priority_slot = 0;
    quint32 active_tg = 0;
    bool private_call = false;
};

// Element of dmr.band_offsets: a receive range and the usual repeater shift in it.
struct BandOffset {
    QString label;
    quint32 rx_min = 0;
    quint32 rx_max = 0;
    qint32 offset_hz = 0;
};

// Login of a TGIF web account, taken from a named key of tgif_api_keys.
struct TgifCredentials {
    QString name;
    QString callsign;
    QString password;
    QString token;
};

// A public master of the hosts list; address is host:port.
struct MasterHost {
    QString label;
    QString id;
    QString address;
};

QList<Peer> loadPeers();
void savePeers(const QList<Peer>& peers);
QJsonObject peerToJson(const Peer& peer);
Peer peerFromJson(const QJsonObject& object);

QString defaultPeerLabel();
void setDefaultPeerLabel(const QString& label);

DmrPeerClient::Profile profileFor(const Peer& peer);
// dmrId x 100 + essid, the ID of every Homebrew packet; 0 when the DMR-ID is unusable.
quint32 peerId(const Peer& peer);
quint32 dmrId(const Peer& peer);
// The callsign the peer transmits with: its override, else that of its identity.
QString peerCallsign(const Peer& peer);

QString resolveApiKey(const Peer& peer);
TgifCredentials tgifCredentials(const Peer& peer);
void storeTgifToken(const QString& name, const QString& token);

QList<BandOffset> bandOffsets();
void setBandOffsets(const QList<BandOffset>& bands);
int offsetForRx(quint32 rxHz);

// The masters of one network group from DMR_Hosts.txt, plus the built-in groups.
QList<MasterHost> masterHosts(const QString& group);
// The hosts-file text as a table by group, each group sorted by label, then numeric id.
QHash<QString, QList<MasterHost>> parseMasterHosts(const QByteArray& text);

} // namespace zl::dmr
