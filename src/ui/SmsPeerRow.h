#pragma once

#include <QFrame>

class QLabel;

namespace zl::ui {

// One running DMR peer on the DMR SMS page: status dot, marker, label, network and state. A click
// picks the peer that messages go out through.
class SmsPeerRow : public QFrame {
    Q_OBJECT

public:
    explicit SmsPeerRow(const QString& label, QWidget* parent = nullptr);

    QString label() const { return peerLabel; }
    void setStatus(const QString& network, const QString& colour, const QString& stateText);
    void setChosen(bool on);

signals:
    void clicked(const QString& peerLabel);

protected:
    void mousePressEvent(QMouseEvent* event) override;

private:
    QString peerLabel;
    QLabel* dot = nullptr;
    QLabel* marker = nullptr;
    QLabel* network = nullptr;
    QLabel* state = nullptr;
};

} // namespace zl::ui
