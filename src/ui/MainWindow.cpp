#include "MainWindow.h"

#include "app/Config.h"
#include "app/StyleSheet.h"
#include "app/Version.h"
#include "dmr/DmrPeerManager.h"

#include <QDebug>
#include <QLabel>

MainWindow::MainWindow(QWidget* parent) : QMainWindow(parent)
{
    setWindowTitle(QStringLiteral("zephyrlake · %1").arg(QLatin1String(zl::kAppVersion)));
    resize(zl::uiScale(780), zl::uiScale(1020));
    setMinimumSize(zl::uiScale(380), zl::uiScale(560));
    auto* placeholder = new QLabel(QStringLiteral("zephyrlake"), this);
    placeholder->setAlignment(Qt::AlignCenter);
    setCentralWidget(placeholder);

    // The DMR peers follow the configuration from the start and at every change.
    auto& peers = zl::dmr::DmrPeerManager::instance();
    peers.reload();
    connect(&zl::Config::instance(), &zl::Config::configChanged, &peers, &zl::dmr::DmrPeerManager::reload);
}

MainWindow::~MainWindow()
{
    qInfo() << "[shutdown] ~MainWindow begin";
}
