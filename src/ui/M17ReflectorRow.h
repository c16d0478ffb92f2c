#pragma once

#include <QFrame>
#include <QString>

class QCheckBox;
class QLabel;
class QLineEdit;
class QPushButton;

namespace zl::ui {

// One M17 reflector in the list of the M17 page: status dot, marker, name and address, the
// module letter, the enabled toggle and the edit button. A click on the row asks the page
// to link to it (or, on the active row, to unlink).
class M17ReflectorRow : public QFrame {
    Q_OBJECT

public:
    M17ReflectorRow(const QString& key, QWidget* parent = nullptr);

    QString key() const { return rowKey; }
    // Name, address and the stored per-row values.
    void show(const QString& name, const QString& address, bool enabled, const QString& module);
    QString module() const;
    bool isEnabled() const;
    void setStatus(const QString& colour, const QString& text);
    QString statusColour() const { return colour; }
    void setActive(bool on);

signals:
    void toggled(const QString& key, bool on);
    void editRequested(const QString& key);
    void clickedActive(const QString& key);
    void moduleChanged(const QString& key, const QString& module);

protected:
    void mousePressEvent(QMouseEvent* event) override;

private:
    QString rowKey;
    QString colour;
    QLabel* dot = nullptr;
    QLabel* marker = nullptr;
    QLabel* name = nullptr;
    QLabel* address = nullptr;
    QLineEdit* moduleEdit = nullptr;
    QCheckBox* onBox = nullptr;
    QPushButton* editButton = nullptr;
};

} // namespace zl::ui
