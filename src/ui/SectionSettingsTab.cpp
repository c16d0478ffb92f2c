#include "ui/SectionSettingsTab.h"

#include "app/Config.h"
#include "ui/SettingsFields.h"

#include <QFormLayout>
#include <QLabel>
#include <QScrollArea>
#include <QVBoxLayout>

SectionSettingsTab::SectionSettingsTab(const QString& section, const QString& heading, QWidget* parent)
    : QWidget(parent), sectionName(section)
{
    setObjectName(QStringLiteral("sectionTab_") + section);
    auto* layout = new QVBoxLayout(this);
    auto* top = new QLabel(heading);
    top->setWordWrap(true);
    layout->addWidget(top);
    auto* scroll = new QScrollArea;
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    auto* page = new QWidget;
    auto* formLayout = new QFormLayout(page);
    scroll->setWidget(page);
    layout->addWidget(scroll, 1);
    form = new zl::ui::SettingsFields(formLayout, this);
    connect(form, &zl::ui::SettingsFields::edited, this, [this] {
        changed = true;
        emit dirtied();
    });
}

void SectionSettingsTab::reload()
{
    form->load(zl::Config::instance().section(sectionName));
    changed = false;
}

void SectionSettingsTab::commit()
{
    if (!changed)
        return;
    changed = false;
    zl::Config& config = zl::Config::instance();
    QJsonObject section = config.section(sectionName);
    if (!form->store(section))
        return;
    config.setSection(sectionName, section);
    config.save();
}
