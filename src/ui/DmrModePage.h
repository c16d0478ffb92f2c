#pragma once

#include "ui/BaseModePage.h"

#include <QHash>

class QVBoxLayout;

namespace zl::ui {
class DmrPeerRow;
}

// The DMR page: one row per configured peer, in list order. The peers' clients belong to
// the peer manager; this page shows their states and edits what PTT transmits to.
class DmrModePage : public BaseModePage {
    Q_OBJECT

public:
    explicit DmrModePage(QWidget* parent = nullptr);

    bool isModeEnabled() const override;
    bool isModeConnected() const override;
    QString serverText() const override;
    QString targetText() const override;
    QString activeRowKey() const override;
    void reloadConfig() override;

private slots:
    void refreshRows();
    void updateStatuses();

private:
    QVBoxLayout* rowsLayout = nullptr;
    QHash<QString, zl::ui::DmrPeerRow*> rows;
};
