#include "ui/AmbeSettingsTab.h"

#include "app/Config.h"
#include "hw/Dv3000Pool.h"
#include "hw/Md380Firmware.h"
#include "ui/FieldCheck.h"

#include <QCheckBox>
#include <QFileDialog>
#include <QFileInfo>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QJsonArray>
#include <QJsonObject>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QTableWidget>
#include <QVBoxLayout>

namespace {

const QString kHardware = QStringLiteral("hardware");
constexpr int kDefaultServerPort = 2460;
constexpr int kHostRole = Qt::UserRole;
constexpr int kPortRole = Qt::UserRole + 1;

QString chipState(const zl::hw::Dv3000Pool::ChipStatus& chip)
{
    if (!chip.failure.isEmpty())
        return QStringLiteral("failed: ") + chip.failure;
    if (chip.productId.isEmpty())
        return QStringLiteral("probing…");
    return (chip.leased ? QStringLiteral("in use — ") : QStringLiteral("ready — ")) + chip.productId;
}

QListWidgetItem* serverItem(const QString& host, int port, bool enabled)
{
    auto* item = new QListWidgetItem(QStringLiteral("%1:%2").arg(host).arg(port));
    item->setData(kHostRole, host);
    item->setData(kPortRole, port);
    item->setFlags(item->flags() | Qt::ItemIsUserCheckable);
    item->setCheckState(enabled ? Qt::Checked : Qt::Unchecked);
    return item;
}

} // namespace

AmbeSettingsTab::AmbeSettingsTab(QWidget* parent)
    : QWidget(parent), chips(new QTableWidget(0, 2)), servers(new QListWidget), serverHost(new QLineEdit),
      serverPort(new QLineEdit(QString::number(kDefaultServerPort))), md380Enabled(new QCheckBox),
      firmwareDir(new QLineEdit), firmwareStatus(new QLabel)
{
    const QJsonObject hw = zl::Config::instance().section(kHardware);
    auto* layout = new QVBoxLayout(this);

    auto* chipBox = new QGroupBox(QStringLiteral("Vocoders found (a stick first, then a server, then software)"));
    auto* chipLayout = new QVBoxLayout(chipBox);
    chips->setObjectName(QStringLiteral("ambeChips"));
    chips->setHorizontalHeaderLabels({QStringLiteral("Where"), QStringLiteral("State")});
    chips->horizontalHeader()->setStretchLastSection(true);
    chips->verticalHeader()->setVisible(false);
    chips->setEditTriggers(QAbstractItemView::NoEditTriggers);
    chips->setMinimumHeight(80);
    chipLayout->addWidget(chips);
    auto* rescan = new QPushButton(QStringLiteral("Rescan"));
    rescan->setToolTip(QStringLiteral("Look again for sticks, servers and the software vocoder"));
    chipLayout->addWidget(rescan, 0, Qt::AlignLeft);
    layout->addWidget(chipBox);

    auto* serverBox = new QGroupBox(QStringLiteral("AMBEserver (a DV3000 shared over the network)"));
    auto* serverLayout = new QVBoxLayout(serverBox);
    servers->setObjectName(QStringLiteral("ambeServers"));
    servers->setMaximumHeight(90);
    for (const QJsonObject& entry : zl::configObjects(hw.value(QStringLiteral("ambe_servers")).toArray(),
                                                      QStringLiteral("hardware.ambe_servers"))) {
        const QString host = entry.value(QStringLiteral("host")).toString().trimmed();
        if (!host.isEmpty())
            servers->addItem(serverItem(host, entry.value(QStringLiteral("port")).toInt(kDefaultServerPort),
                                        entry.value(QStringLiteral("enabled")).toBool(true)));
    }
    serverLayout->addWidget(servers);
    auto* form = new QFormLayout;
    serverHost->setObjectName(QStringLiteral("ambeServerHost"));
    serverPort->setObjectName(QStringLiteral("ambeServerPort"));
    form->addRow(QStringLiteral("Host or IP"), serverHost);
    zl::ui::addFieldCheck(serverHost, form, [](const QString& text) {
        // An empty field is simply not filled in yet.
        return text.trimmed().isEmpty() ? QString() : zl::ui::checkHost(text);
    });
    form->addRow(QStringLiteral("Port"), serverPort);
    zl::ui::addFieldCheck(serverPort, form, zl::ui::checkPort);
    serverLayout->addLayout(form);
    auto* serverButtons = new QHBoxLayout;
    auto* add = new QPushButton(QStringLiteral("Add server"));
    add->setObjectName(QStringLiteral("addAmbeServer"));
    auto* remove = new QPushButton(QStringLiteral("Remove"));
    serverButtons->addWidget(add);
    serverButtons->addWidget(remove);
    serverButtons->addStretch();
    serverLayout->addLayout(serverButtons);
    layout->addWidget(serverBox);

    auto* md380Box = new QGroupBox(QStringLiteral("MD380 software vocoder"));
    auto* md380Form = new QFormLayout(md380Box);
    md380Enabled->setObjectName(QStringLiteral("md380Enabled"));
    md380Enabled->setText(QStringLiteral("Use the vocoder of an MD380 firmware image when no stick or server is free"));
    md380Enabled->setChecked(hw.value(QStringLiteral("ambe_md380_enabled")).toBool(true));
    md380Form->addRow(md380Enabled);
    auto* dirLine = new QHBoxLayout;
    firmwareDir->setObjectName(QStringLiteral("md380FirmwareDir"));
    firmwareDir->setPlaceholderText(QStringLiteral("(the program's vocoder_fw folder)"));
    firmwareDir->setText(hw.value(QStringLiteral("md380_fw_dir")).toString());
    auto* choose = new QPushButton(QStringLiteral("Choose md380fw.img…"));
    dirLine->addWidget(firmwareDir, 1);
    dirLine->addWidget(choose);
    md380Form->addRow(QStringLiteral("Firmware folder"), dirLine);
    firmwareStatus->setObjectName(QStringLiteral("md380FirmwareStatus"));
    firmwareStatus->setWordWrap(true);
    md380Form->addRow(firmwareStatus);
    md380Form->addRow(new QLabel(QStringLiteral("md380fw.img and md380ram.img of firmware d02.032, taken from your "
                                                "own radio; they are not shipped with the program.")));
    layout->addWidget(md380Box);
    layout->addStretch();

    const auto dirty = [this] {
        changed = true;
        emit dirtied();
    };
    connect(rescan, &QPushButton::clicked, this, [] { zl::hw::Dv3000Pool::instance()->rescan(); });
    connect(add, &QPushButton::clicked, this, &AmbeSettingsTab::addServer);
    connect(remove, &QPushButton::clicked, this, [this, dirty] {
        if (QListWidgetItem* item = servers->currentItem()) {
            delete item;
            dirty();
        }
    });
    connect(servers, &QListWidget::itemChanged, this, dirty);
    connect(md380Enabled, &QCheckBox::toggled, this, dirty);
    connect(firmwareDir, &QLineEdit::textEdited, this, dirty);
    connect(firmwareDir, &QLineEdit::textChanged, this, &AmbeSettingsTab::checkFirmware);
    connect(choose, &QPushButton::clicked, this, &AmbeSettingsTab::chooseFirmware);
    connect(zl::hw::Dv3000Pool::instance(), &zl::hw::Dv3000Pool::changed, this, &AmbeSettingsTab::refreshChips);
    refreshChips();
    checkFirmware();
}

void AmbeSettingsTab::refreshChips()
{
    const QList<zl::hw::Dv3000Pool::ChipStatus> statuses = zl::hw::Dv3000Pool::instance()->chipStatuses();
    chips->setRowCount(int(statuses.size()));
    for (int row = 0; row < int(statuses.size()); ++row) {
        chips->setItem(row, 0, new QTableWidgetItem(statuses.at(row).location));
        chips->setItem(row, 1, new QTableWidgetItem(chipState(statuses.at(row))));
    }
    chips->resizeColumnToContents(0);
}

void AmbeSettingsTab::addServer()
{
    const QString host = serverHost->text().trimmed();
    if (!zl::ui::checkHost(host).isEmpty() || !zl::ui::checkPort(serverPort->text()).isEmpty())
        return;
    servers->addItem(serverItem(host, serverPort->text().trimmed().toInt(), true));
    serverHost->clear();
    changed = true;
    emit dirtied();
}

void AmbeSettingsTab::chooseFirmware()
{
    const QString file = QFileDialog::getOpenFileName(this, QStringLiteral("MD380 firmware image"), firmwareDir->text(),
                                                      QStringLiteral("MD380 firmware (md380fw.img);;All files (*)"));
    if (file.isEmpty())
        return;
    firmwareDir->setText(QFileInfo(file).absolutePath());
    changed = true;
    emit dirtied();
}

void AmbeSettingsTab::checkFirmware()
{
    QString folder = firmwareDir->text().trimmed();
    QString problem;
    if (folder.isEmpty()) {
        // Without a folder of its own the program looks beside itself; say where it found them.
        const QStringList folders = zl::hw::md380FirmwareFolders();
        problem = QStringLiteral("not found beside the program — choose the folder that holds them");
        for (const QString& each : folders) {
            if (zl::hw::md380FirmwareProblem(each).isEmpty()) {
                folder = each;
                problem.clear();
                break;
            }
        }
    } else {
        problem = zl::hw::md380FirmwareProblem(folder);
    }
    firmwareStatus->setText(problem.isEmpty() ? QStringLiteral("✓ both images found in %1").arg(folder)
                                              : QStringLiteral("⚠ ") + problem);
    firmwareStatus->setStyleSheet(problem.isEmpty() ? QStringLiteral("color:#39c34a;")
                                                    : QStringLiteral("color:#e0b020;"));
}

void AmbeSettingsTab::commit()
{
    if (!changed)
        return;
    changed = false;
    zl::Config& config = zl::Config::instance();
    QJsonObject hw = config.section(kHardware);
    QJsonArray list;
    for (int i = 0; i < servers->count(); ++i) {
        const QListWidgetItem* item = servers->item(i);
        list.append(QJsonObject{{QStringLiteral("host"), item->data(kHostRole).toString()},
                                {QStringLiteral("port"), item->data(kPortRole).toInt()},
                                {QStringLiteral("enabled"), item->checkState() == Qt::Checked}});
    }
    hw.insert(QStringLiteral("ambe_servers"), list);
    hw.insert(QStringLiteral("ambe_md380_enabled"), md380Enabled->isChecked());
    hw.insert(QStringLiteral("md380_fw_dir"), firmwareDir->text().trimmed());
    config.setSectionSilent(kHardware, hw);
    config.save();
    zl::hw::Dv3000Pool::instance()->rescan();
}
