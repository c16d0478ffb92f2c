#include "PrivateNetwork.h"

#include "SpawnedProgram.h"

#include <QCoreApplication>
#include <QProcessEnvironment>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

namespace {

QString systemError(const char* what)
{
    return QStringLiteral("%1: %2").arg(QLatin1String(what), QString::fromLocal8Bit(std::strerror(errno)));
}

int currentNamespace()
{
    return ::open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC);
}

} // namespace

PrivateNetwork::PrivateNetwork()
{
    original = currentNamespace();
    if (original < 0) {
        reason = systemError("open /proc/thread-self/ns/net");
        return;
    }
    ready = build();
    if (ready)
        return;
    if (moved)
        enter(original);
    moved = false;
    for (int* ns : {&here, &neighbour}) {
        if (*ns >= 0)
            ::close(*ns);
        *ns = -1;
    }
}

PrivateNetwork::~PrivateNetwork()
{
    // The namespaces stay while sockets or programs still live in them, and go with their last.
    if (moved)
        enter(original);
    for (const int ns : {original, here, neighbour}) {
        if (ns >= 0)
            ::close(ns);
    }
}

bool PrivateNetwork::build()
{
    // Only the calling thread moves; Qt's other threads stay where they are.
    if (::unshare(CLONE_NEWNET) != 0) {
        permitted = errno != EPERM;
        reason = systemError("unshare");
        return false;
    }
    moved = true;
    neighbour = currentNamespace();
    if (::unshare(CLONE_NEWNET) != 0) {
        reason = systemError("unshare");
        return false;
    }
    here = currentNamespace();
    if (neighbour < 0 || here < 0) {
        reason = systemError("open /proc/thread-self/ns/net");
        return false;
    }
    // ip opens the neighbour through this process's descriptor of it.
    const QString neighbourPath =
        QStringLiteral("/proc/%1/fd/%2").arg(QCoreApplication::applicationPid()).arg(neighbour);
    // A new namespace starts with its loopback interface down.
    if (!run({"link", "set", "lo", "up"}) ||
        !run({"link", "add", "zl-here", "type", "veth", "peer", "name", "zl-there", "netns", neighbourPath}) ||
        !run({"address", "add", hereAddress().toString() + "/24", "dev", "zl-here"}) ||
        !run({"link", "set", "zl-here", "up"}))
        return false;
    enter(neighbour);
    const bool neighbourUp = run({"address", "add", neighbourAddress().toString() + "/24", "dev", "zl-there"}) &&
                             run({"link", "set", "zl-there", "up"});
    enter(here);
    return neighbourUp;
}

void PrivateNetwork::enter(int ns)
{
    if (ns >= 0 && ::setns(ns, CLONE_NEWNET) != 0)
        qFatal("PrivateNetwork: cannot enter a namespace it made: %s", std::strerror(errno));
}

bool PrivateNetwork::run(const QStringList& args)
{
    // The tool starts in the calling thread's namespace.
    if (!SpawnedProgram::run(QStringLiteral("ip"), args, QProcessEnvironment::systemEnvironment(), 10000).isNull())
        return true;
    reason = QStringLiteral("ip %1 failed").arg(args.join(QLatin1Char(' ')));
    return false;
}
