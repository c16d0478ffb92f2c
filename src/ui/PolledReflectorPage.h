#pragma once

#include "ui/ReflectorModePage.h"

namespace zl {
class PolledUdpLink;
}

// The YSF and NXDN pages' way of linking: every enabled row keeps its own link, so that a
// change of the active row is instant; only the active row's speech is heard.
class PolledReflectorPage : public ReflectorModePage {
    Q_OBJECT

public:
    ~PolledReflectorPage() override;

    bool isModeConnected() const override;
    // Makes a row the one that takes PTT and audio.
    void makeActive(const QString& key);

protected:
    PolledReflectorPage(const QString& mode, QWidget* parent);

    virtual zl::PolledUdpLink* createClient(const Server& server) = 0;
    // A frame from the active reflector, for the voice path.
    virtual void voiceFrame(const QByteArray& frame) = 0;

    zl::PolledUdpLink* activeClient() const { return clients.value(activeKey); }

    void start() override;
    void rowClicked(const QString& key) override { makeActive(key); }
    void rowEnabled(const QString& key) override { startClient(key); }
    void relink(const QString& key) override { startClient(key); }
    void dropClient(const QString& key) override;
    void rowsRebuilt() override;
    QString statusWords() const override;

private:
    void startClient(const QString& key);
    void updateRow(const QString& key);

    QHash<QString, zl::PolledUdpLink*> clients;
    QHash<QString, QString> errors;
};
