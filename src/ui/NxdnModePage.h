#pragma once

#include "ui/PolledReflectorPage.h"

namespace zl::nxdn {
class NxdnVoice;
}

// The NXDN page: every enabled reflector linked on its talkgroup, the active one heard and
// talked to.
class NxdnModePage : public PolledReflectorPage {
    Q_OBJECT

public:
    explicit NxdnModePage(QWidget* parent = nullptr);

    void setPttActive(bool on) override;

protected:
    zl::ui::ReflectorRow* createRow(const QString& key) override;
    zl::PolledUdpLink* createClient(const Server& server) override;
    QString linkData(const Server& server) const override;
    void activeChanged(const Server& server) override;
    void voiceFrame(const QByteArray& frame) override;

private:
    // The row's callsign, else the identity's, else "N0CALL".
    QString linkCallsign(const Server& server) const;
    quint16 radioId(const Server& server) const;

    zl::nxdn::NxdnVoice* voice = nullptr;
};
