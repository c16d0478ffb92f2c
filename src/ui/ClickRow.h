#pragma once

#include <QFrame>

class QLabel;

namespace zl::ui {

// A one-line row that reports clicks: a connection of the EchoLink page.
class ClickRow : public QFrame {
    Q_OBJECT

public:
    ClickRow(const QString& key, const QString& text, QWidget* parent = nullptr);

    QString key() const { return rowKey; }
    void setActive(bool on);

signals:
    void clicked(const QString& key);

protected:
    void mousePressEvent(QMouseEvent* event) override;

private:
    QString rowKey;
    QLabel* marker = nullptr;
};

} // namespace zl::ui
