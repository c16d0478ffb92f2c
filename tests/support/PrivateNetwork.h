#pragma once

#include <QHostAddress>
#include <QString>

// Two hosts of the test's own, joined by a veth link, each in an unnamed network namespace: the
// calling thread lives "here" while the object exists, so a program may bind its well-known ports
// here while a station on the neighbour binds the same ones. The kernel removes the namespaces
// with their last socket, however the test ends. Needs CAP_SYS_ADMIN and the ip tool.
class PrivateNetwork {
public:
    PrivateNetwork();
    ~PrivateNetwork();
    PrivateNetwork(const PrivateNetwork&) = delete;
    PrivateNetwork& operator=(const PrivateNetwork&) = delete;

    bool isReady() const { return ready; }
    bool isPermitted() const { return permitted; } // false when not root
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

    int original = -1;
    int here = -1;
    int neighbour = -1;
    bool moved = false;
    bool ready = false;
    bool permitted = true;
    QString reason;
};
