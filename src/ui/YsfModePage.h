#pragma once

#include "ui/PolledReflectorPage.h"

namespace zl::ysf {
class YsfVoice;
}

// The YSF page: every enabled reflector linked, the active one heard and talked to.
class YsfModePage : public PolledReflectorPage {
    Q_OBJECT

public:
    explicit YsfModePage(QWidget* parent = nullptr);

    void setPttActive(bool on) override;

protected:
    zl::ui::ReflectorRow* createRow(const QString& key) override;
    zl::PolledUdpLink* createClient(const Server& server) override;
    QString linkData(const Server& server) const override;
    void activeChanged(const Server& server) override;
    void voiceFrame(const QByteArray& frame) override;

private:
    QString linkCallsign() const;

    zl::ysf::YsfVoice* voice = nullptr;
};
