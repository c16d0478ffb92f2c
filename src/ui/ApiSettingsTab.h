#pragma once

#include <QJsonArray>
#include <QWidget>

class QListWidget;

namespace zl::ui {

// The stored keys of the networks with an API: BrandMeister keys and TGIF accounts, which peers
// pick by name.
class ApiSettingsTab : public QWidget {
    Q_OBJECT

public:
    explicit ApiSettingsTab(QWidget* parent = nullptr);

public slots:
    void commit();

signals:
    void dirtied();

private:
    struct Panel {
        bool tgif = false;
        QJsonArray keys;
        QListWidget* list = nullptr;
    };
    QWidget* buildPanel(Panel& panel, const QString& title);
    void showKeys(const Panel& panel);
    void edit(Panel& panel, int row);

    Panel bm;
    Panel tgif{true, {}, nullptr};
};

} // namespace zl::ui
