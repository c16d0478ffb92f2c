#pragma once

#include "dmr/Peer.h"

#include <QWidget>

class QLabel;
class QPushButton;
class QTableWidget;

namespace zl::dmr {
class BmApiClient;
class TgifApiClient;
struct BmProfile;
struct TgifStatus;
} // namespace zl::dmr

namespace zl::ui {

// What a peer's network knows about its talkgroups (BrandMeister: static, dynamic and timed per
// slot; TGIF: one per slot), read live and changed through the network's API. Stores nothing but
// its geometry.
class PeerTgWindow : public QWidget {
    Q_OBJECT

public:
    explicit PeerTgWindow(const QString& peerLabel, QWidget* parent = nullptr);
    void refresh();

signals:
    void changed();

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    struct SlotView {
        int slot = 0;
        QTableWidget* table = nullptr;
        QPushButton* add = nullptr;
        QPushButton* remove = nullptr;
    };
    QWidget* buildSlot(int slot);
    void setBusy(bool on);
    void onProfile(const zl::dmr::BmProfile& profile);
    void onStatus(const zl::dmr::TgifStatus& status);
    void onAdd(const SlotView& view);
    void onRemove(const SlotView& view);
    void onActionDone(bool ok, const QString& msg);
    void showError(const QString& msg);

    QString peerLabel;
    zl::dmr::Peer peer;
    bool isTgif = false;
    bool simplex = false;
    bool busy = false;
    zl::dmr::BmApiClient* bm = nullptr;
    zl::dmr::TgifApiClient* tgif = nullptr;
    QLabel* status = nullptr;
    QList<SlotView> slotViews;
};

} // namespace zl::ui
