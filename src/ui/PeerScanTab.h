#pragma once

#include "dmr/Peer.h"

#include <QWidget>

class QCheckBox;
class QLabel;
class QPushButton;
class QSpinBox;
class QTableWidget;

namespace zl::dmr {
class TgifScanClient;
struct ScanConfig;
} // namespace zl::dmr

namespace zl::ui {

// TGIF's custom scan for the account of a peer: the switch, the dwell time, the scanned talkgroups
// with their priorities, and the hotspot the scan plays on.
class PeerScanTab : public QWidget {
    Q_OBJECT

public:
    explicit PeerScanTab(const zl::dmr::Peer& peer, QWidget* parent = nullptr);

private:
    void onConfig(const zl::dmr::ScanConfig& cfg);

    zl::dmr::Peer peer;
    zl::dmr::TgifScanClient* client = nullptr;
    QLabel* status;
    QCheckBox* scanner;
    QSpinBox* dwell;
    QTableWidget* table;
    QSpinBox* newTg;
    QSpinBox* newPriority;
    QPushButton* target;
};

} // namespace zl::ui
