#pragma once

#include <QFrame>
#include <QJsonObject>

class QLabel;

namespace zl::ui {

// One AllStar node of the AllStar page: status dot, marker and "name  —  host  (node n)".
// A click makes it the node the microphone and the command line go to.
class AllStarNodeRow : public QFrame {
    Q_OBJECT

public:
    AllStarNodeRow(const QString& key, const QJsonObject& entry, QWidget* parent = nullptr);

    QString key() const { return rowKey; }
    QString text() const;
    void setStatus(const QString& colour, const QString& text);
    void setActive(bool on);

signals:
    void clickedActive(const QString& key);

protected:
    void mousePressEvent(QMouseEvent* event) override;

private:
    QString rowKey;
    QLabel* dot = nullptr;
    QLabel* marker = nullptr;
    QLabel* title = nullptr;
};

} // namespace zl::ui
