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

bool HelpTips::isEnabled() const
{
    return Config::instance().section(kGeneral).value(kEnabledKey).toBool(true);
}

void HelpTips::setEnabled(bool on)
{
    Config& config = Config::instance();
    QJsonObject general = config.section(kGeneral);
    general.insert(kEnabledKey, on);
    config.setSection(kGeneral, general);
    config.save();
    if (!on)
        QToolTip::hideText();
}

QString HelpTips::helpTextFor(const QObject* widget)
{
    for (const QObject* at = widget; at && at->isWidgetType(); at = at->parent()) {
        const QString help = at->property("helpText").toString();
        if (!help.isEmpty())
            return help;
        if (static_cast<const QWidget*>(at)->isWindow())
            break;
    }
    return {};
}

bool HelpTips::eventFilter(QObject* watched, QEvent* event)
{
    // QEvent::ToolTip is what Qt sends when the pointer has rested on a widget.
    if (event->type() != QEvent::ToolTip || !watched->isWidgetType())
        return false;
    auto* widget = static_cast<QWidget*>(watched);
    if (!isEnabled())
        return false;
    // A tool tip of the widget's own goes before the help text of a parent.
    QString help = widget->property("helpText").toString();
    if (help.isEmpty() && widget->toolTip().isEmpty())
        help = helpTextFor(widget);
    if (help.isEmpty())
        return false;
    QToolTip::showText(static_cast<QHelpEvent*>(event)->globalPos(), help, widget);
    return true;
}

} // namespace zl::ui
