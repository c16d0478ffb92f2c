#pragma once

#include <QJsonObject>
#include <QList>
#include <QString>
#include <QStringList>

namespace zl {

// One operator identity of a mode, stored under identities.<mode> in the configuration.
struct Identity {
    QString label;
    QString callsign;
    QString id_field;
    QString essid;
    QString extra;
    QString network;
    QString server;
    QString password;
    QString api_key;
    bool use_api_key = false;
    bool auto_connect = false;
};

QJsonObject identityToJson(const Identity& identity);
Identity identityFromJson(const QJsonObject& object);

QList<Identity> identities(const QString& mode);
void setIdentities(const QString& mode, const QList<Identity>& list);
QStringList autoConnectLabels(const QString& mode);

void setActiveIdentity(const QString& mode, const QString& label);
QString txIdentityLabel(const QString& mode);
// The identity a mode transmits with; an empty callsign means none is configured.
Identity resolveIdentity(const QString& mode);

QString identityDisplayText(const Identity& identity);

// A callsign as it came from the network, cut to what can be shown and stored: printable
// characters only, no padding, at most 16 characters.
QString printableCallsign(const QString& raw);

QStringList allModeKeys();
QStringList fieldLabels(const QString& mode);
QString modeHeading(const QString& mode);
// The mode's short name, as on its settings tab: "DMR", "D-STAR", "Echolink" …
QString modeTitle(const QString& mode);

} // namespace zl
