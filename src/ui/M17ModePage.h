#pragma once

#include "ui/ReflectorModePage.h"

namespace zl::m17 {
class M17Client;
class M17Voice;
} // namespace zl::m17

// The M17 page: reflectors linked one at a time. A click on a row links it, a second click
// unlinks it; the linked row takes PTT and its received speech goes to the mixer.
class M17ModePage : public ReflectorModePage {
    Q_OBJECT

public:
    explicit M17ModePage(QWidget* parent = nullptr);
    ~M17ModePage() override;

    bool isModeConnected() const override;
    void setPttActive(bool on) override;
    void reloadConfig() override;

    // Links the row's reflector, unlinking the one linked before.
    void connectTo(const QString& key);

protected:
    zl::ui::ReflectorRow* createRow(const QString& key) override;
    QString linkData(const Server& server) const override;
    void start() override;
    void rowClicked(const QString& key) override;
    void rowEnabled(const QString& key) override;
    void relink(const QString& key) override;
    void dropClient(const QString& key) override;
    QString statusWords() const override;

private:
    void disconnectActive();
    zl::m17::M17Client* clientFor(const QString& key);
    void onClientState(const QString& key, int state);
    void onTalker(const QString& source, quint16 streamId);

    QHash<QString, zl::m17::M17Client*> clients;
    zl::m17::M17Voice* voice = nullptr;
    bool haveStream = false;
    quint16 lastStreamId = 0;
};
