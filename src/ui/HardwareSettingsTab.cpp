#include "ui/HardwareSettingsTab.h"

#include "app/Config.h"
#include "hw/Dv3000Pool.h"

#include <QFile>
#include <QFileInfo>
#include <QGroupBox>
#include <QHeaderView>
#include <QJsonArray>
#include <QJsonObject>
#include <QLabel>
#include <QPushButton>
#include <QSet>
#include <QTableWidget>
#include <QVBoxLayout>

namespace {

const QString kHardware = QStringLiteral("hardware");
const QString kDisabledPorts = QStringLiteral("ambe_disabled_ports");

QSet<QString> disabledPorts()
{
    QSet<QString> disabled;
    for (const QJsonValue& v : zl::Config::instance().section(kHardware).value(kDisabledPorts).toArray())
        disabled.insert(v.toString());
    return disabled;
}

} // namespace

QString HardwareSettingsTab::raspberryPiModel(const QByteArray& cpuinfo)
{
    for (const QByteArray& line : cpuinfo.split('\n')) {
        const int colon = line.indexOf(':');
        if (colon < 0 || line.left(colon).trimmed() != "Model")
            continue;
        const QString model = QString::fromUtf8(line.mid(colon + 1)).trimmed();
        return model.startsWith(QLatin1String("Raspberry Pi")) ? model : QString();
    }
    return {};
}

HardwareSettingsTab::HardwareSettingsTab(QWidget* parent)
    : QWidget(parent), ports(new QTableWidget(0, 3)), permissionHint(new QLabel)
{
    auto* layout = new QVBoxLayout(this);
    QFile cpuinfo(QStringLiteral("/proc/cpuinfo"));
    const QString pi = cpuinfo.open(QIODevice::ReadOnly) ? raspberryPiModel(cpuinfo.readAll()) : QString();
    if (!pi.isEmpty()) {
        auto* board = new QLabel(QStringLiteral("This computer is a %1. A DV3000 stick or an AMBEserver leaves more of "
                                                "its processor to the audio than the MD380 software vocoder does.")
                                     .arg(pi));
        board->setWordWrap(true);
        layout->addWidget(board);
    }

    auto* box = new QGroupBox(QStringLiteral("Serial ports for DV3000 sticks (FTDI)"));
    auto* boxLayout = new QVBoxLayout(box);
    ports->setObjectName(QStringLiteral("serialPorts"));
    ports->setHorizontalHeaderLabels({QStringLiteral("Use"), QStringLiteral("Port"), QStringLiteral("State")});
    ports->horizontalHeader()->setStretchLastSection(true);
    ports->verticalHeader()->setVisible(false);
    ports->setEditTriggers(QAbstractItemView::NoEditTriggers);
    boxLayout->addWidget(ports);
    permissionHint->setObjectName(QStringLiteral("serialPermission"));
    permissionHint->setWordWrap(true);
    permissionHint->setStyleSheet(QStringLiteral("color:#e0b020;"));
    boxLayout->addWidget(permissionHint);
    auto* note = new QLabel(QStringLiteral("Untick a port that holds another FTDI device (a radio's programming "
                                           "cable, a GPS): the program will not touch it."));
    note->setWordWrap(true);
    boxLayout->addWidget(note);
    auto* rescan = new QPushButton(QStringLiteral("Look for ports again"));
    boxLayout->addWidget(rescan, 0, Qt::AlignLeft);
    layout->addWidget(box);
    layout->addStretch();

    connect(rescan, &QPushButton::clicked, this, &HardwareSettingsTab::refreshPorts);
    connect(ports, &QTableWidget::itemChanged, this, [this](QTableWidgetItem* item) {
        if (item->column() == 0) {
            changed = true;
            emit dirtied();
        }
    });
    connect(zl::hw::Dv3000Pool::instance(), &zl::hw::Dv3000Pool::changed, this, &HardwareSettingsTab::refreshPorts);
    refreshPorts();
}

void HardwareSettingsTab::refreshPorts()
{
    // Ticks the user changed and not yet applied stay as they are.
    QHash<QString, Qt::CheckState> ticks;
    for (int row = 0; row < ports->rowCount(); ++row)
        ticks.insert(ports->item(row, 1)->text(), ports->item(row, 0)->checkState());
    const QSet<QString> disabled = disabledPorts();
    QStringList locations = zl::hw::Dv3000Pool::instance()->candidatePorts();
    for (const QString& port : disabled) {
        if (!locations.contains(port))
            locations << port;
    }
    QHash<QString, QString> states;
    for (const zl::hw::Dv3000Pool::ChipStatus& chip : zl::hw::Dv3000Pool::instance()->chipStatuses())
        states.insert(chip.location, !chip.failure.isEmpty()    ? QStringLiteral("failed: ") + chip.failure
                                     : chip.productId.isEmpty() ? QStringLiteral("probing…")
                                                                : chip.productId);
    QStringList noAccess;
    const QSignalBlocker blocker(ports);
    ports->setRowCount(int(locations.size()));
    for (int row = 0; row < int(locations.size()); ++row) {
        const QString& port = locations.at(row);
        auto* use = new QTableWidgetItem;
        use->setFlags(Qt::ItemIsEnabled | Qt::ItemIsUserCheckable);
        use->setCheckState(ticks.value(port, disabled.contains(port) ? Qt::Unchecked : Qt::Checked));
        ports->setItem(row, 0, use);
        ports->setItem(row, 1, new QTableWidgetItem(port));
        const QFileInfo device(port);
        QString state = states.value(port);
        if (state.isEmpty())
            state = !device.exists() ? QStringLiteral("not plugged in") : QStringLiteral("not in use");
        if (device.exists() && !(device.isReadable() && device.isWritable())) {
            state = QStringLiteral("no permission");
            noAccess << port;
        }
        ports->setItem(row, 2, new QTableWidgetItem(state));
    }
    ports->resizeColumnsToContents();
    permissionHint->setText(noAccess.isEmpty()
                                ? QString()
                                : QStringLiteral("You may not open %1. Add yourself to the group dialout "
                                                 "(sudo usermod -aG dialout $USER) and log in again.")
                                      .arg(noAccess.join(QStringLiteral(", "))));
    permissionHint->setVisible(!noAccess.isEmpty());
}

void HardwareSettingsTab::commit()
{
    if (!changed)
        return;
    changed = false;
    QJsonArray disabled;
    for (int row = 0; row < ports->rowCount(); ++row) {
        if (ports->item(row, 0)->checkState() != Qt::Checked)
            disabled.append(ports->item(row, 1)->text());
    }
    zl::Config& config = zl::Config::instance();
    QJsonObject hw = config.section(kHardware);
    hw.insert(kDisabledPorts, disabled);
    config.setSectionSilent(kHardware, hw);
    config.save();
    zl::hw::Dv3000Pool::instance()->rescan();
}
