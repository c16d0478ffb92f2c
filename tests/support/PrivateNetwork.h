#pragma once

#include <QHostAddress>
#include <QString>

// Two hosts of the test's own, joined by a virtual Ethernet link, each in a network namespace
// nobody else on the machine sees. The calling thread lives on the first ("here") for the life
// of the object, so the sockets it opens and the programs it starts meet only each other and the
// neighbour: a program may bind its well-known ports here while a station on the neighbour binds
// the same ones. The namespaces have no names: the kernel removes each, and the link with it,
// once the last socket or program in it is gone, however the test ends.
// Needs CAP_SYS_ADMIN (root, as in CI) and the ip tool.
class PrivateNetwork {
public:
    PrivateNetwork();
    ~PrivateNetwork();
    PrivateNetwork(const PrivateNetwork&) = delete;
    PrivateNetwork& operator=(const PrivateNetwork&) = delete;

    bool isReady() const { return ready; }
    // False when this user may not make namespaces at all (not root).
    bool isPermitted() const { return permitted; }
    // Why the network could not be made.
    QString failure() const { return reason; }

    static QHostAddress hereAddress() { return QHostAddress(QStringLiteral("192.0.2.1")); }
    static QHostAddress neighbourAddress() { return QHostAddress(QStringLiteral("192.0.2.2")); }

    // Runs make with the calling thread on the neighbour; the sockets it opens stay there.
    template <typename Make>
    auto onNeighbour(Make make)
    {
        enter(neighbour);
        auto made = make();
        enter(here);
        return made;
    }

private:
    bool build();
    void enter(int ns);
    bool run(const QStringList& args);

    int original = -1; // the thread's namespace before, to go back to
    int here = -1;
    int neighbour = -1;
    bool moved = false; // whether the thread left the original namespace
    bool ready = false;
    bool permitted = true;
    QString reason;
};
