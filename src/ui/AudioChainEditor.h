#pragma once

#include "audio/AudioChainConfig.h"
#include "audio/LadspaHost.h"

#include <QWidget>

#include <array>

class QCheckBox;
class QComboBox;
class QDoubleSpinBox;
class QFormLayout;
class QLabel;
class QListWidget;
class QSlider;
class QSpinBox;

// The controls of one direction's chain: preamp, seven equaliser bands, the LADSPA plug-ins
// in their order with their controls, automatic gain and limiter.
class AudioChainEditor : public QWidget {
    Q_OBJECT

public:
    explicit AudioChainEditor(QWidget* parent = nullptr);

    void setConfig(const zl::audio::AudioChainConfig& config);
    zl::audio::AudioChainConfig config() const;
    // The installed plug-ins offered for adding.
    void setCatalogue(const QList<zl::audio::LadspaPluginInfo>& catalogue);

signals:
    void changed();

private:
    void addPlugin();
    void movePlugin(int step);
    void removePlugin();
    void showControls();
    void refreshPluginList();
    const zl::audio::LadspaPluginInfo* infoOf(const QString& label) const;

    QCheckBox* enabled;
    QDoubleSpinBox* gainDb;
    QCheckBox* eqOn;
    std::array<QSlider*, zl::audio::AudioChainConfig::kBands> bands{};
    QCheckBox* agc;
    QSpinBox* agcTarget;
    QDoubleSpinBox* limCeilDb;
    QListWidget* pluginList;
    QComboBox* addCombo;
    QWidget* controlsBox;
    QFormLayout* controlsForm;
    QList<zl::audio::ChainPluginConfig> plugins;
    QList<zl::audio::LadspaPluginInfo> catalogue;
    bool loading = false;
};
