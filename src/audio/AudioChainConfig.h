#pragma once

#include <QJsonObject>
#include <QList>
#include <QString>

#include <array>

namespace zl::audio {

// One LADSPA plug-in of a chain: its label, whether it runs, and its control values in the
// order of its control input ports (missing ones keep the plug-in's defaults).
struct ChainPluginConfig {
    QString label;
    bool on = true;
    QList<float> ctl;
};

// The settings of one direction's signal path, as stored in the configuration.
struct AudioChainConfig {
    static constexpr int kBands = 7;

    bool enabled = false;
    float gainDb = 0.0f;
    bool eqOn = false;
    std::array<float, kBands> eq{};
    bool agc = false;
    float agcTarget = 8000.0f;
    float limCeilDb = -0.8f;
    QList<ChainPluginConfig> ladspa;

    QJsonObject toJson() const;
};

// Reads a chain object; missing or mistyped keys keep their defaults.
AudioChainConfig parseChain(const QJsonObject& chain);

// The chain stored under chainKey ("chain_tx" or "chain_rx") for this peer of this mode: the
// peer's own if it has one, else the mode's own, else the system default.
AudioChainConfig loadChainConfig(const QString& modeKey, const QString& peerKey, const QString& chainKey);

} // namespace zl::audio
