#pragma once

#include <QObject>

namespace zl::ui {

// Shows the help text a widget carries (dynamic property "helpText", looked up from the
// widget under the pointer outwards through its parents) when the pointer rests on it,
// while general.help_tips_enabled is on (default on). Installed on the whole application.
class HelpTips : public QObject {
    Q_OBJECT

public:
    static HelpTips& instance();

    bool isEnabled() const;
    // The help text that applies to a widget: its own or that of the nearest parent.
    static QString helpTextFor(const QObject* widget);

public slots:
    void setEnabled(bool on);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    HelpTips();
};

} // namespace zl::ui
