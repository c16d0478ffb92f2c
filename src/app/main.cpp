#include "app/Config.h"
#include "app/Log.h"
#include "app/SignalBridge.h"
#include "app/Version.h"
#include "audio/AudioDevice.h"
#include "audio/AudioMixer.h"
#include "dmr/DmrPeerManager.h"
#include "ui/HelpTips.h"
#include "ui/MainWindow.h"
#include "ui/StyleSheet.h"

#include <QApplication>
#include <QDebug>
#include <QIcon>
#include <QJsonObject>
#include <QMessageBox>
#include <QThread>
#include <QTimer>

#include <cstdio>
#include <cstring>
#include <memory>
#include <unistd.h>

namespace {

bool versionRequested(int argc, char** argv)
{
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--version") == 0 || std::strcmp(argv[i], "-v") == 0)
            return true;
    }
    return false;
}

// As root the program cannot reach the user's sound server or D-Bus session.
void refuseRoot()
{
    qWarning() << "main: refusing to run as root";
    // Headless platforms have nobody to click the box away; the log carries the refusal.
    const QString platform = QGuiApplication::platformName();
    if (platform == QLatin1String("offscreen") || platform == QLatin1String("minimal"))
        return;
    QMessageBox::critical(nullptr, QStringLiteral("zephyrlake — do not run as root"),
                          QStringLiteral("<b>zephyrlake must not be run as root.</b><br><br>"
                                         "As root the app cannot see the normal user's<br>"
                                         "PipeWire/PulseAudio socket or DBus session, so<br>"
                                         "audio devices and config paths break.<br><br>"
                                         "Start it as a regular user:<br>"
                                         "<code>/home/&lt;your-user&gt;/projects/zephyrlake/build/zephyrlake</code>"),
                          QMessageBox::Ok);
}

// A desktop card often offers one output at a time; put back the one the user chose
// and give the sound server time to re-create its sinks before anything enumerates them.
void restoreSpeakerCard()
{
    const QJsonObject audio = zl::Config::instance().section(QStringLiteral("audio"));
    const QString card = audio.value(QStringLiteral("default_spk_card")).toString();
    const QString profile = audio.value(QStringLiteral("default_spk_profile")).toString();
    if (card.isEmpty() || profile.isEmpty())
        return;
    zl::AudioDevice::instance().setCardProfile(card, profile);
    QThread::msleep(150);
}

void onAboutToQuit()
{
    qInfo() << "[shutdown] aboutToQuit — calling DmrPeerManager::stopAll()";
    // The peers say goodbye (RPTCL) while the event loop and their sockets still live.
    zl::dmr::DmrPeerManager::instance().stopAll();
    // Sink and source must be gone before the platform layer goes down in ~QApplication.
    zl::audio::AudioMixer::instance().shutdown();
    qInfo() << "[shutdown] aboutToQuit done";
}

} // namespace

int main(int argc, char** argv)
{
    if (versionRequested(argc, argv)) {
        std::printf("%s %s\n", zl::kAppName, zl::kAppVersion);
        return 0;
    }

    auto app = std::make_unique<QApplication>(argc, argv);
    QCoreApplication::setOrganizationName(QLatin1String(zl::kOrganisationName));
    QCoreApplication::setApplicationName(QLatin1String(zl::kAppName));
    QCoreApplication::setApplicationVersion(QLatin1String(zl::kAppVersion));
    QGuiApplication::setWindowIcon(QIcon(QStringLiteral(":/zephyrlake.png")));

    zl::initLog();

    if (::geteuid() == 0) {
        refuseRoot();
        app.reset();
        return 1;
    }

    zl::applyStyleSheet();
    restoreSpeakerCard();
    zl::ui::HelpTips::instance();

    auto window = std::make_unique<MainWindow>();
    window->show();
    QTimer::singleShot(0, [] { qInfo() << "main: window shown"; });

    zl::installSignalBridge();
    QObject::connect(app.get(), &QCoreApplication::aboutToQuit, app.get(), onAboutToQuit, Qt::DirectConnection);

    const int code = QApplication::exec();
    qInfo() << "[shutdown] app.exec() returned" << code;
    window.reset();
    app.reset();
    return code;
}
