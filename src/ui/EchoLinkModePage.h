#pragma once

#include "echolink/EchoLinkQso.h"
#include "echolink/Station.h"
#include "ui/BaseModePage.h"

#include <QElapsedTimer>
#include <QHash>
#include <QMetaObject>

class QLineEdit;
class QPlainTextEdit;
class QPushButton;
class QVBoxLayout;

namespace zl::echolink {
class EchoLinkDirectory;
class EchoLinkDispatcher;
} // namespace zl::echolink
namespace zl::ui {
class ClickRow;
}

// The EchoLink page: online/offline on the directory, connections out by callsign or node
// number, incoming calls within the limits of the settings. Every connected station is one
// QSO; the selected one hears the microphone.
class EchoLinkModePage : public BaseModePage {
    Q_OBJECT

public:
    explicit EchoLinkModePage(QWidget* parent = nullptr);
    ~EchoLinkModePage() override;

    bool isModeEnabled() const override;
    bool isModeConnected() const override;
    QString serverText() const override;
    QString targetText() const override;
    QString activeRowKey() const override;
    void setPttActive(bool on) override;
    void reloadConfig() override;

    // Tests only: where the directory and the QSO sockets are, and the QSOs' timers.
    zl::echolink::EchoLinkDirectory* directory() const { return dir; }
    zl::echolink::EchoLinkDispatcher* dispatcher() const { return disp; }
    void setQsoTimingForTest(const zl::echolink::EchoLinkQso::Timing& timing) { qsoTiming = timing; }

    zl::echolink::EchoLinkQso* qso(const QString& address) const { return connections.value(address); }
    // The text lines of the page's chat view.
    QStringList chatLines() const;
    void goOnline();
    // A callsign or a node number, as typed.
    void connectTo(const QString& text);
    void selectConnection(const QString& address);

public slots:
    void refreshDirectory();

private:
    void print(const QString& line);
    // What the directory registration depends on; a change of it means registering again.
    QString registrationKey() const;
    void onIncoming(const QHostAddress& peer, const QString& callsign);
    zl::echolink::EchoLinkQso* makeQso(const QString& address, const QString& callsign, int nodeId);
    void onQsoState(const QString& address, zl::echolink::EchoLinkQso::State state);
    void onQsoPcm(const QString& address, const QByteArray& pcm);
    void updateRows();

    zl::echolink::EchoLinkDirectory* dir = nullptr;
    zl::echolink::EchoLinkDispatcher* disp = nullptr;
    zl::echolink::EchoLinkQso::Timing qsoTiming;
    QHash<QString, zl::echolink::Station> stations;
    // Keyed by the peer's address text.
    QHash<QString, zl::echolink::EchoLinkQso*> connections;
    QHash<QString, QString> callsigns;
    QHash<QString, int> nodeIds;
    QHash<QString, QElapsedTimer> lastAudio;
    QHash<QString, zl::ui::ClickRow*> rows;
    QString activeKey;
    QString appliedRegistration;
    QMetaObject::Connection micConnection;
    QVBoxLayout* rowsLayout = nullptr;
    QPlainTextEdit* chat = nullptr;
    QLineEdit* target = nullptr;
    QPushButton* onlineButton = nullptr;
};
