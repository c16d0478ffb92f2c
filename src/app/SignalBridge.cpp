#include "SignalBridge.h"

#include <QCoreApplication>
#include <QDebug>
#include <QSocketNotifier>

#include <csignal>
#include <unistd.h>

namespace zl {

namespace {

// Before the pipe exists both ends are -1, so an early signal is ignored.
int g_signalPipe[2] = {-1, -1};

void onPosixSignal(int)
{
    // Async-signal-safe only: one byte into the pipe. It is never read back: the
    // process is quitting anyway, and a second signal just keeps the pipe readable.
    if (g_signalPipe[1] != -1) {
        const char byte = 1;
        [[maybe_unused]] const ssize_t written = ::write(g_signalPipe[1], &byte, 1);
    }
}

} // namespace

void installSignalBridge()
{
    if (::pipe(g_signalPipe) != 0)
        return;
    auto* notifier = new QSocketNotifier(g_signalPipe[0], QSocketNotifier::Read, QCoreApplication::instance());
    QObject::connect(notifier, &QSocketNotifier::activated, notifier, [notifier] {
        // Quit once; a readable pipe would otherwise wake the loop again and again.
        notifier->setEnabled(false);
        qInfo() << "[shutdown] SIGINT/SIGTERM received — quitting";
        QCoreApplication::quit();
    });
    std::signal(SIGINT, onPosixSignal);
    std::signal(SIGTERM, onPosixSignal);
}

} // namespace zl
