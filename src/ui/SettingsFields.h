#pragma once

#include "ui/FieldCheck.h"

#include <QJsonObject>
#include <QJsonValue>
#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>

#include <functional>

class QCheckBox;
class QComboBox;
class QDoubleSpinBox;
class QFormLayout;
class QLineEdit;
class QSpinBox;
class QWidget;

namespace zl::ui {

// Masks a password or key field and gives it a "show" toggle at its end.
void maskWithShowToggle(QLineEdit* field);

// The fields of one settings object (a section, or one entry of a list) on a form. Each
// field is bound to a key and named after it. store() writes only the keys whose value the
// user changed since load(): what was never touched keeps its stored form, or stays absent
// so that the program's default still applies.
class SettingsFields : public QObject {
    Q_OBJECT

public:
    explicit SettingsFields(QFormLayout* form, QObject* parent = nullptr);

    QLineEdit* text(const QString& key, const QString& label, const FieldRule& rule = {}, const QString& fallback = {});
    QLineEdit* secret(const QString& key, const QString& label);
    QSpinBox* number(const QString& key, const QString& label, int min, int max, int fallback,
                     const FieldRule& rule = {});
    QDoubleSpinBox* decimal(const QString& key, const QString& label, double min, double max, int decimals);
    QCheckBox* flag(const QString& key, const QString& label, bool fallback = false);
    QComboBox* choice(const QString& key, const QString& label, const QStringList& values, const QString& fallback);

    void load(const QJsonObject& from);
    // Writes the changed fields into `into`; true if there was any.
    bool store(QJsonObject& into);
    bool isEmpty() const { return fields.isEmpty(); }

signals:
    void edited();

private:
    struct Field {
        QString key;
        std::function<QJsonValue()> get;
        std::function<void(const QJsonValue&)> set;
        QJsonValue shown;
    };
    void add(const QString& label, QWidget* widget, Field field);
    void onChanged();

    QFormLayout* form;
    QList<Field> fields;
    bool loading = false;
};

} // namespace zl::ui
