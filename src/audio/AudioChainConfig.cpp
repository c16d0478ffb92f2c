#include "AudioChainConfig.h"

#include "app/Config.h"

#include <QJsonArray>

#include <algorithm>

namespace zl::audio {

namespace {

const QString kChainOwn = QStringLiteral("chain_own");

// The chain under key in a holder object, if the holder asks for its own chain and has one.
bool ownChain(const QJsonObject& holder, const QString& key, QJsonObject& chain)
{
    if (!holder.value(kChainOwn).toBool(false) || !holder.value(key).isObject())
        return false;
    chain = holder.value(key).toObject();
    return true;
}

// A number within bounds that no sensible setting leaves, so that a hand-edited file cannot
// drive the arithmetic to infinities.
float number(const QJsonValue& v, float fallback, float lowest, float highest)
{
    return v.isDouble() ? float(std::clamp(v.toDouble(), double(lowest), double(highest))) : fallback;
}

} // namespace

AudioChainConfig parseChain(const QJsonObject& chain)
{
    AudioChainConfig c;
    c.enabled = chain.value(QStringLiteral("enabled")).toBool(false);
    c.gainDb = number(chain.value(QStringLiteral("gain_db")), 0.0f, -60.0f, 60.0f);
    c.eqOn = chain.value(QStringLiteral("eq_on")).toBool(false);
    const QJsonArray eq = chain.value(QStringLiteral("eq")).toArray();
    for (int i = 0; i < AudioChainConfig::kBands && i < eq.size(); ++i)
        c.eq[size_t(i)] = number(eq.at(i), 0.0f, -30.0f, 30.0f);
    c.agc = chain.value(QStringLiteral("agc")).toBool(false);
    c.agcTarget = number(chain.value(QStringLiteral("agc_target")), 8000.0f, 0.0f, 32767.0f);
    c.limCeilDb = number(chain.value(QStringLiteral("lim_ceil_db")), -0.8f, -60.0f, 60.0f);
    for (const QJsonValue& entry : chain.value(QStringLiteral("ladspa")).toArray()) {
        const QJsonObject o = entry.toObject();
        ChainPluginConfig plugin;
        plugin.label = o.value(QStringLiteral("label")).toString();
        if (plugin.label.isEmpty())
            continue;
        plugin.on = o.value(QStringLiteral("on")).toBool(true);
        for (const QJsonValue& value : o.value(QStringLiteral("ctl")).toArray())
            plugin.ctl.append(float(value.toDouble(0.0)));
        c.ladspa.append(plugin);
    }
    return c;
}

QJsonObject AudioChainConfig::toJson() const
{
    QJsonArray bands;
    for (float band : eq)
        bands.append(double(band));
    QJsonArray plugins;
    for (const ChainPluginConfig& plugin : ladspa) {
        QJsonArray values;
        for (float value : plugin.ctl)
            values.append(double(value));
        plugins.append(QJsonObject{{"label", plugin.label}, {"on", plugin.on}, {"ctl", values}});
    }
    return {{"enabled", enabled},
            {"gain_db", double(gainDb)},
            {"eq_on", eqOn},
            {"eq", bands},
            {"agc", agc},
            {"agc_target", double(agcTarget)},
            {"lim_ceil_db", double(limCeilDb)},
            {"ladspa", plugins}};
}

AudioChainConfig loadChainConfig(const QString& modeKey, const QString& peerKey, const QString& chainKey)
{
    const Config& config = Config::instance();
    const QJsonObject mode = config.section(modeKey);
    QJsonObject chain;
    if (!peerKey.isEmpty() &&
        ownChain(mode.value(QStringLiteral("peer_audio")).toObject().value(peerKey).toObject(), chainKey, chain))
        return parseChain(chain);
    if (ownChain(mode.value(QStringLiteral("audio")).toObject(), chainKey, chain))
        return parseChain(chain);
    return parseChain(config.section(QStringLiteral("audio")).value(chainKey).toObject());
}

} // namespace zl::audio
