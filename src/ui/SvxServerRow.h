#pragma once

#include <QFrame>
#include <QJsonObject>

class QCheckBox;
class QLabel;
class QSpinBox;

namespace zl::ui {

// One reflector of the SvxLink page: status dot, marker, key, the on/off toggle and the
// talk group PTT selects. Changes are written back to the configuration at once.
class SvxServerRow : public QFrame {
    Q_OBJECT

public:
    SvxServerRow(const QString& key, const QJsonObject& entry, QWidget* parent = nullptr);

    QString key() const { return rowKey; }
    uint tg() const;
    void setTg(uint tg);
    void setStatus(const QString& colour, const QString& text);
    void setActive(bool on);

signals:
    void clickedActive(const QString& key);
    void enabledToggled(const QString& key, bool on);
    void tgChanged(const QString& key, uint tg);

protected:
    void mousePressEvent(QMouseEvent* event) override;

private:
    // Writes one value of this row's entry back to section svxlink.
    void store(const QString& name, const QJsonValue& value);

    QString rowKey;
    QLabel* dot = nullptr;
    QLabel* marker = nullptr;
    QLabel* status = nullptr;
    QCheckBox* onBox = nullptr;
    QSpinBox* tgSpin = nullptr;
};

} // namespace zl::ui
