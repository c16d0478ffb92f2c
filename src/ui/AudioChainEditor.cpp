#include "ui/AudioChainEditor.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QFormLayout>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QSlider>
#include <QSpinBox>
#include <QVBoxLayout>

using zl::audio::AudioChainConfig;
using zl::audio::ChainPluginConfig;
using zl::audio::LadspaControl;
using zl::audio::LadspaPluginInfo;

namespace {

const char* const kBandNames[] = {"250", "500", "900", "1.4k", "2k", "2.8k", "3.3k"};
constexpr int kBandRangeDb = 12;

QDoubleSpinBox* decibels(double min, double max)
{
    auto* box = new QDoubleSpinBox;
    box->setRange(min, max);
    box->setSingleStep(0.5);
    box->setDecimals(1);
    box->setSuffix(QStringLiteral(" dB"));
    return box;
}

} // namespace

AudioChainEditor::AudioChainEditor(QWidget* parent)
    : QWidget(parent), enabled(new QCheckBox(QStringLiteral("Process this direction"))), gainDb(decibels(-30, 30)),
      eqOn(new QCheckBox(QStringLiteral("Equaliser"))), agc(new QCheckBox(QStringLiteral("Automatic gain, aiming at"))),
      agcTarget(new QSpinBox), limCeilDb(decibels(-20, 0)), pluginList(new QListWidget), addCombo(new QComboBox),
      controlsBox(new QWidget), controlsForm(new QFormLayout(controlsBox))
{
    enabled->setObjectName(QStringLiteral("chainEnabled"));
    gainDb->setObjectName(QStringLiteral("chainGain"));
    eqOn->setObjectName(QStringLiteral("chainEqOn"));
    pluginList->setObjectName(QStringLiteral("chainPlugins"));
    addCombo->setObjectName(QStringLiteral("chainAddPlugin"));
    agcTarget->setRange(500, 20000);
    agcTarget->setSingleStep(500);
    agcTarget->setSuffix(QStringLiteral(" RMS"));
    limCeilDb->setToolTip(QStringLiteral("No sample goes above this level below full scale."));

    auto* levels = new QFormLayout;
    levels->addRow(enabled);
    levels->addRow(QStringLiteral("Preamp"), gainDb);
    auto* agcRow = new QHBoxLayout;
    agcRow->addWidget(agc);
    agcRow->addWidget(agcTarget);
    levels->addRow(agcRow);
    levels->addRow(QStringLiteral("Limiter ceiling"), limCeilDb);

    auto* eqGrid = new QGridLayout;
    eqGrid->addWidget(eqOn, 0, 0, 1, AudioChainConfig::kBands);
    for (int i = 0; i < AudioChainConfig::kBands; ++i) {
        QSlider* slider = bands[size_t(i)] = new QSlider(Qt::Vertical);
        slider->setObjectName(QStringLiteral("band%1").arg(i));
        slider->setRange(-kBandRangeDb, kBandRangeDb);
        slider->setTickPosition(QSlider::TicksBothSides);
        slider->setTickInterval(6);
        auto* value = new QLabel(QStringLiteral("0"));
        value->setAlignment(Qt::AlignCenter);
        connect(slider, &QSlider::valueChanged, value,
                [value](int db) { value->setText(QString::asprintf("%+d", db)); });
        eqGrid->addWidget(value, 1, i);
        eqGrid->addWidget(slider, 2, i, Qt::AlignHCenter);
        auto* name = new QLabel(QString::fromLatin1(kBandNames[i]));
        name->setAlignment(Qt::AlignCenter);
        eqGrid->addWidget(name, 3, i);
    }

    auto* add = new QPushButton(QStringLiteral("Add"));
    add->setObjectName(QStringLiteral("chainAdd"));
    auto* remove = new QPushButton(QStringLiteral("Remove"));
    auto* up = new QPushButton(QStringLiteral("▲"));
    auto* down = new QPushButton(QStringLiteral("▼"));
    auto* pluginButtons = new QHBoxLayout;
    pluginButtons->addWidget(addCombo, 1);
    for (QPushButton* button : {add, remove, up, down})
        pluginButtons->addWidget(button);
    auto* pluginBox = new QGroupBox(QStringLiteral("LADSPA plug-ins, in order (ticked ones run)"));
    auto* pluginLayout = new QVBoxLayout(pluginBox);
    pluginLayout->addWidget(pluginList);
    pluginLayout->addLayout(pluginButtons);
    pluginLayout->addWidget(controlsBox);
    pluginList->setMaximumHeight(120);

    auto* top = new QHBoxLayout;
    top->addLayout(levels);
    top->addLayout(eqGrid);
    auto* layout = new QVBoxLayout(this);
    layout->addLayout(top);
    layout->addWidget(pluginBox);

    const auto edited = [this] {
        if (!loading)
            emit changed();
    };
    for (QCheckBox* box : {enabled, eqOn, agc})
        connect(box, &QCheckBox::toggled, this, edited);
    for (QDoubleSpinBox* box : {gainDb, limCeilDb})
        connect(box, &QDoubleSpinBox::valueChanged, this, edited);
    connect(agcTarget, &QSpinBox::valueChanged, this, edited);
    for (QSlider* slider : bands)
        connect(slider, &QSlider::valueChanged, this, edited);
    connect(add, &QPushButton::clicked, this, &AudioChainEditor::addPlugin);
    connect(remove, &QPushButton::clicked, this, &AudioChainEditor::removePlugin);
    connect(up, &QPushButton::clicked, this, [this] { movePlugin(-1); });
    connect(down, &QPushButton::clicked, this, [this] { movePlugin(1); });
    connect(pluginList, &QListWidget::currentRowChanged, this, &AudioChainEditor::showControls);
    connect(pluginList, &QListWidget::itemChanged, this, [this](QListWidgetItem* item) {
        const int row = pluginList->row(item);
        if (loading || row < 0 || row >= plugins.size())
            return;
        plugins[row].on = item->checkState() == Qt::Checked;
        emit changed();
    });
    setCatalogue({});
}

void AudioChainEditor::setCatalogue(const QList<LadspaPluginInfo>& installed)
{
    catalogue = installed;
    addCombo->clear();
    for (const LadspaPluginInfo& p : catalogue) {
        const bool stereo = p.audioIns > 1 || p.audioOuts > 1;
        addCombo->addItem(QStringLiteral("%1  (%2)%3")
                              .arg(p.name, p.label, stereo ? QStringLiteral("  [stereo → first in/out]") : ""),
                          p.label);
    }
    if (catalogue.isEmpty())
        addCombo->addItem(QStringLiteral("No LADSPA plugins found (install swh-plugins / tap-plugins / caps)"));
    addCombo->setEnabled(!catalogue.isEmpty());
    refreshPluginList();
}

const LadspaPluginInfo* AudioChainEditor::infoOf(const QString& label) const
{
    for (const LadspaPluginInfo& p : catalogue) {
        if (p.label == label)
            return &p;
    }
    return nullptr;
}

void AudioChainEditor::setConfig(const AudioChainConfig& config)
{
    loading = true;
    enabled->setChecked(config.enabled);
    gainDb->setValue(config.gainDb);
    eqOn->setChecked(config.eqOn);
    for (size_t i = 0; i < bands.size(); ++i)
        bands[i]->setValue(qRound(config.eq[i]));
    agc->setChecked(config.agc);
    agcTarget->setValue(qRound(config.agcTarget > 0 ? config.agcTarget : 8000.0f));
    limCeilDb->setValue(config.limCeilDb);
    plugins = config.ladspa;
    loading = false;
    refreshPluginList();
}

AudioChainConfig AudioChainEditor::config() const
{
    AudioChainConfig c;
    c.enabled = enabled->isChecked();
    c.gainDb = float(gainDb->value());
    c.eqOn = eqOn->isChecked();
    for (size_t i = 0; i < bands.size(); ++i)
        c.eq[i] = float(bands[i]->value());
    c.agc = agc->isChecked();
    c.agcTarget = float(agcTarget->value());
    c.limCeilDb = float(limCeilDb->value());
    c.ladspa = plugins;
    return c;
}

void AudioChainEditor::refreshPluginList()
{
    loading = true;
    const int current = pluginList->currentRow();
    pluginList->clear();
    for (const ChainPluginConfig& p : std::as_const(plugins)) {
        const LadspaPluginInfo* info = infoOf(p.label);
        // A plug-in that is no longer installed stays in the chain, marked, and costs nothing.
        auto* item = new QListWidgetItem(info ? QStringLiteral("%1  (%2)").arg(info->name, p.label)
                                              : QStringLiteral("%1  (not installed)").arg(p.label));
        item->setFlags(item->flags() | Qt::ItemIsUserCheckable);
        item->setCheckState(p.on ? Qt::Checked : Qt::Unchecked);
        pluginList->addItem(item);
    }
    loading = false;
    pluginList->setCurrentRow(qMin(current, int(plugins.size()) - 1));
    showControls();
}

void AudioChainEditor::addPlugin()
{
    const QString label = addCombo->currentData().toString();
    if (label.isEmpty())
        return;
    plugins.append({label, true, {}});
    refreshPluginList();
    pluginList->setCurrentRow(int(plugins.size()) - 1);
    emit changed();
}

void AudioChainEditor::removePlugin()
{
    const int row = pluginList->currentRow();
    if (row < 0 || row >= plugins.size())
        return;
    plugins.removeAt(row);
    refreshPluginList();
    emit changed();
}

void AudioChainEditor::movePlugin(int step)
{
    const int row = pluginList->currentRow();
    const int to = row + step;
    if (row < 0 || to < 0 || to >= plugins.size())
        return;
    plugins.swapItemsAt(row, to);
    refreshPluginList();
    pluginList->setCurrentRow(to);
    emit changed();
}

void AudioChainEditor::showControls()
{
    while (controlsForm->rowCount() > 0)
        controlsForm->removeRow(0);
    const int row = pluginList->currentRow();
    const LadspaPluginInfo* info = row >= 0 && row < plugins.size() ? infoOf(plugins[row].label) : nullptr;
    if (!info)
        return;
    for (int i = 0; i < info->controls.size(); ++i) {
        const LadspaControl& control = info->controls[i];
        const QList<float>& ctl = plugins[row].ctl;
        const float value = i < ctl.size() ? ctl[i] : control.defaultValue;
        // Stores this control's value, filling the ones before it with their defaults.
        const auto store = [this, row, i, info](double v) {
            QList<float>& values = plugins[row].ctl;
            while (values.size() <= i)
                values.append(info->controls[values.size()].defaultValue);
            values[i] = float(v);
            emit changed();
        };
        if (control.toggled) {
            auto* box = new QCheckBox;
            box->setChecked(value > 0.0f);
            connect(box, &QCheckBox::toggled, this, [store](bool on) { store(on ? 1.0 : 0.0); });
            controlsForm->addRow(control.name, box);
            continue;
        }
        auto* spin = new QDoubleSpinBox;
        spin->setDecimals(control.integer ? 0 : 3);
        spin->setRange(qMin(control.lower, value), qMax(control.upper, value));
        spin->setSingleStep(control.integer ? 1.0 : (control.upper - control.lower) / 100.0);
        spin->setValue(value);
        connect(spin, &QDoubleSpinBox::valueChanged, this, store);
        controlsForm->addRow(control.name, spin);
    }
}
