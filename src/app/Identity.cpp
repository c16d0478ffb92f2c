#include "Identity.h"

#include "Config.h"

#include <QHash>
#include <QJsonArray>

namespace zl {

namespace {

const QString kIdentities = QStringLiteral("identities");
const QString kModeState = QStringLiteral("mode_state");

struct TextField {
    const char* key;
    QString Identity::*member;
};

// Fields written only when not empty, in the order they appear in the file.
const TextField kOptionalTexts[] = {
    {"id_field", &Identity::id_field}, {"essid", &Identity::essid},   {"extra", &Identity::extra},
    {"network", &Identity::network},   {"server", &Identity::server}, {"password", &Identity::password},
    {"api_key", &Identity::api_key},
};

} // namespace

QJsonObject identityToJson(const Identity& identity)
{
    QJsonObject o;
    o.insert(QStringLiteral("label"), identity.label);
    o.insert(QStringLiteral("callsign"), identity.callsign);
    for (const TextField& field : kOptionalTexts) {
        const QString& value = identity.*field.member;
        if (!value.isEmpty())
            o.insert(QLatin1String(field.key), value);
    }
    if (identity.use_api_key)
        o.insert(QStringLiteral("use_api_key"), true);
    if (identity.auto_connect)
        o.insert(QStringLiteral("auto_connect"), true);
    return o;
}

Identity identityFromJson(const QJsonObject& o)
{
    Identity identity;
    identity.label = o.value(QStringLiteral("label")).toString();
    identity.callsign = o.value(QStringLiteral("callsign")).toString();
    for (const TextField& field : kOptionalTexts)
        identity.*field.member = o.value(QLatin1String(field.key)).toString();
    identity.use_api_key = o.value(QStringLiteral("use_api_key")).toBool(false);
    identity.auto_connect = o.value(QStringLiteral("auto_connect")).toBool(false);
    return identity;
}

QList<Identity> identities(const QString& mode)
{
    QList<Identity> list;
    const QJsonArray array = Config::instance().section(kIdentities).value(mode).toArray();
    for (const QJsonObject& object : configObjects(array, QStringLiteral("identities.") + mode))
        list.append(identityFromJson(object));
    return list;
}

void setIdentities(const QString& mode, const QList<Identity>& list)
{
    Config& config = Config::instance();
    QJsonArray array;
    for (const Identity& identity : list)
        array.append(identityToJson(identity));
    QJsonObject all = config.section(kIdentities);
    all.insert(mode, array);
    config.setSection(kIdentities, all);
    config.save();
}

QStringList autoConnectLabels(const QString& mode)
{
    QStringList labels;
    for (const Identity& identity : identities(mode)) {
        if (identity.auto_connect)
            labels.append(identity.label);
    }
    return labels;
}

void setActiveIdentity(const QString& mode, const QString& label)
{
    Config& config = Config::instance();
    QJsonObject states = config.section(kModeState);
    QJsonObject state = states.value(mode).toObject();
    state.insert(QStringLiteral("tx_identity"), label);
    state.insert(QStringLiteral("active_identity"), label);
    states.insert(mode, state);
    config.setSection(kModeState, states);
    config.save();
}

QString txIdentityLabel(const QString& mode)
{
    const QJsonObject state = Config::instance().section(kModeState).value(mode).toObject();
    const QString tx = state.value(QStringLiteral("tx_identity")).toString();
    return tx.isEmpty() ? state.value(QStringLiteral("active_identity")).toString() : tx;
}

Identity resolveIdentity(const QString& mode)
{
    const QList<Identity> list = identities(mode);
    const auto byLabel = [&list](const QString& label) -> const Identity* {
        for (const Identity& identity : list) {
            if (identity.label == label)
                return &identity;
        }
        return nullptr;
    };

    // A stale label (identity deleted since) falls through to the next rule.
    const QString want = txIdentityLabel(mode);
    if (!want.isEmpty()) {
        if (const Identity* found = byLabel(want))
            return *found;
    }
    const QStringList autoLabels = autoConnectLabels(mode);
    if (!autoLabels.isEmpty()) {
        if (const Identity* found = byLabel(autoLabels.first()))
            return *found;
    }
    return list.isEmpty() ? Identity() : list.first();
}

QString identityDisplayText(const Identity& identity)
{
    QString name = identity.label;
    if (name.isEmpty())
        name = identity.callsign;
    if (name.isEmpty())
        name = QStringLiteral("(unnamed)");

    QString detail;
    if (!identity.callsign.isEmpty() && !identity.label.isEmpty() && identity.callsign != identity.label)
        detail = identity.callsign;
    if (!identity.id_field.isEmpty()) {
        if (!detail.isEmpty())
            detail += QStringLiteral(", ");
        detail += identity.id_field;
        if (!identity.essid.isEmpty())
            detail += QLatin1Char('-') + identity.essid;
    }
    return detail.isEmpty() ? name : QStringLiteral("%1 (%2)").arg(name, detail);
}

QStringList allModeKeys()
{
    return {QStringLiteral("allstar"),  QStringLiteral("aprs"),    QStringLiteral("dmr"),  QStringLiteral("dstar"),
            QStringLiteral("echolink"), QStringLiteral("m17"),     QStringLiteral("nxdn"), QStringLiteral("p25"),
            QStringLiteral("pocsag"),   QStringLiteral("svxlink"), QStringLiteral("ysf")};
}

QStringList fieldLabels(const QString& mode)
{
    static const QHash<QString, QString> thirdLabel = {
        {QStringLiteral("dmr"), QStringLiteral("DMR-ID")},
        {QStringLiteral("nxdn"), QStringLiteral("NXDN-ID")},
        {QStringLiteral("p25"), QStringLiteral("P25-ID")},
        {QStringLiteral("m17"), QStringLiteral("Default module")},
        {QStringLiteral("ysf"), QStringLiteral("DG-ID")},
        {QStringLiteral("aprs"), QStringLiteral("Symbol")},
        {QStringLiteral("dstar"), QStringLiteral("\"Your\" string")},
        {QStringLiteral("pocsag"), QStringLiteral("Subscribed RICs")},
        {QStringLiteral("echolink"), QStringLiteral("Node nr")},
        {QStringLiteral("svxlink"), QStringLiteral("Default link")},
        {QStringLiteral("allstar"), QStringLiteral("Node nr")},
    };
    QString second = QStringLiteral("Callsign");
    if (mode == QLatin1String("aprs"))
        second = QStringLiteral("Callsign+SSID");
    else if (mode == QLatin1String("pocsag"))
        second = QStringLiteral("Username");
    QStringList labels = {QStringLiteral("Label"), second};
    if (thirdLabel.contains(mode))
        labels.append(thirdLabel.value(mode));
    if (mode == QLatin1String("dmr"))
        labels.append(QStringLiteral("ESSID"));
    return labels;
}

QString modeHeading(const QString& mode)
{
    static const QHash<QString, QString> headings = {
        {QStringLiteral("dmr"), QStringLiteral("DMR identities")},
        {QStringLiteral("nxdn"), QStringLiteral("NXDN identities")},
        {QStringLiteral("p25"), QStringLiteral("P25 identities")},
        {QStringLiteral("m17"), QStringLiteral("M17 identities")},
        {QStringLiteral("ysf"), QStringLiteral("YSF identities")},
        {QStringLiteral("aprs"), QStringLiteral("APRS identities")},
        {QStringLiteral("dstar"), QStringLiteral("D-STAR identities")},
        {QStringLiteral("pocsag"), QStringLiteral("POCSAG / DAPNET accounts")},
        {QStringLiteral("echolink"), QStringLiteral("Echolink identities")},
        {QStringLiteral("svxlink"), QStringLiteral("SvxLink identities")},
        {QStringLiteral("allstar"), QStringLiteral("AllStar identities")},
    };
    return headings.value(mode, mode);
}

QString modeTitle(const QString& mode)
{
    static const QHash<QString, QString> titles = {
        {QStringLiteral("allstar"), QStringLiteral("AllStar")},
        {QStringLiteral("aprs"), QStringLiteral("APRS")},
        {QStringLiteral("dmr"), QStringLiteral("DMR")},
        {QStringLiteral("dstar"), QStringLiteral("D-STAR")},
        {QStringLiteral("echolink"), QStringLiteral("Echolink")},
        {QStringLiteral("m17"), QStringLiteral("M17")},
        {QStringLiteral("nxdn"), QStringLiteral("NXDN")},
        {QStringLiteral("p25"), QStringLiteral("P25")},
        {QStringLiteral("pocsag"), QStringLiteral("POCSAG")},
        {QStringLiteral("svxlink"), QStringLiteral("SvxLink")},
        {QStringLiteral("ysf"), QStringLiteral("YSF")},
    };
    return titles.value(mode, mode);
}

QString printableCallsign(const QString& raw)
{
    QString out;
    out.reserve(raw.size());
    for (const QChar c : raw) {
        if (c.isPrint())
            out.append(c);
    }
    return out.trimmed().left(16);
}

} // namespace zl
