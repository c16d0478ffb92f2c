#include "HelpTips.h"

#include "app/Config.h"

#include <QApplication>
#include <QHelpEvent>
#include <QJsonObject>
#include <QToolTip>
#include <QWidget>

namespace zl::ui {

namespace {
const QString kGeneral = QStringLiteral("general");
const QString kEnabledKey = QStringLiteral("help_tips_enabled");
} // namespace

HelpTips& HelpTips::instance()
{
    static HelpTips tips;
    return tips;
}

HelpTips::HelpTips()
{
    qApp->installEventFilter(this);
}

void HelpTips::setEnabled(bool on)
{
    Config& config = Config::instance();
    QJsonObject general = config.section(kGeneral);
    general.insert(kEnabledKey, on);
    config.setSection(kGeneral, general);
    config.save();
}

bool HelpTips::eventFilter(QObject* watched, QEvent* event)
{
    // QEvent::ToolTip is what Qt sends when the pointer has rested on a widget.
    if (event->type() != QEvent::ToolTip || !watched->isWidgetType())
        return false;
    const QString help = watched->property("helpText").toString();
    if (help.isEmpty())
        return false;
    if (!Config::instance().section(kGeneral).value(kEnabledKey).toBool(true))
        return false;
    QToolTip::showText(static_cast<QHelpEvent*>(event)->globalPos(), help, static_cast<QWidget*>(watched));
    return true;
}

} // namespace zl::ui
