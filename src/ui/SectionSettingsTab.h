#pragma once

#include <QWidget>

namespace zl::ui {
class SettingsFields;
}

// A tab that is one form over one section of the configuration.
class SectionSettingsTab : public QWidget {
    Q_OBJECT

public:
    SectionSettingsTab(const QString& section, const QString& heading, QWidget* parent = nullptr);

public slots:
    void commit();

signals:
    void dirtied();

protected:
    zl::ui::SettingsFields* fields() const { return form; }
    // Shows the stored values; the derived tab calls it once its fields exist.
    void reload();

private:
    QString sectionName;
    zl::ui::SettingsFields* form;
    bool changed = false;
};
