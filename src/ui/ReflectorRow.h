#pragma once

#include <QFrame>
#include <QHash>
#include <QJsonObject>
#include <QString>

class QCheckBox;
class QHBoxLayout;
class QLabel;
class QLineEdit;
class QPushButton;

namespace zl::ui {

// One reflector in a reflector page's list: status dot, marker, name and address, the
// row's own fields, the enabled toggle and the edit button. A click on the row makes it
// the active one. Subclasses add the fields their mode stores per row.
class ReflectorRow : public QFrame {
    Q_OBJECT

public:
    ReflectorRow(const QString& key, QWidget* parent = nullptr);

    QString key() const { return rowKey; }
    void show(const QString& name, const QString& address, bool enabled, const QJsonObject& values);
    void setStatus(const QString& colour, const QString& text);
    QString statusColour() const { return colour; }
    void setActive(bool on);

signals:
    void toggled(const QString& key, bool on);
    void editRequested(const QString& key);
    void clickedActive(const QString& key);
    void fieldChanged(const QString& key, const QString& field, const QJsonValue& value);

protected:
    // A number field stored under `field`, shown with its default until one is stored.
    void addNumber(const QString& field, const QString& label, int min, int max, int fallback, const QString& tip);
    QLineEdit* addText(const QString& field, const QString& label, const QString& tip);
    void mousePressEvent(QMouseEvent* event) override;

private:
    QString rowKey;
    QString colour;
    QHBoxLayout* fields = nullptr;
    QHash<QString, QWidget*> editors;
    QHash<QString, int> fallbacks;
    QLabel* dot = nullptr;
    QLabel* marker = nullptr;
    QLabel* name = nullptr;
    QLabel* address = nullptr;
    QCheckBox* onBox = nullptr;
    QPushButton* editButton = nullptr;
};

} // namespace zl::ui
