#pragma once

#include <QObject>

namespace zl::ui {

// Shows the help text a widget carries (dynamic property "helpText") when the pointer
// rests on it, while general.help_tips_enabled is on. Installed on the whole application.
class HelpTips : public QObject {
    Q_OBJECT

public:
    static HelpTips& instance();

public slots:
    void setEnabled(bool on);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    HelpTips();
};

} // namespace zl::ui
