#pragma once

#include <QByteArray>
#include <QList>
#include <QMetaType>

namespace zl::dmr {

// A talkgroup on one time slot of a BrandMeister device.
struct BmStatic {
    quint32 tg = 0;
    int slot = 0;
};

// What BrandMeister holds for a device: the groups it always carries, the ones keyed up lately and
// the scheduled ones.
struct BmProfile {
    QList<BmStatic> staticTalkgroups;
    QList<BmStatic> dynamicTalkgroups;
    QList<BmStatic> timedTalkgroups;
};

// Reads the body of a profile request; false if it is not a JSON object. The service has named the
// fields of a subscription differently over time: every form seen is taken.
bool parseBmProfile(const QByteArray& body, BmProfile& profile);

} // namespace zl::dmr

Q_DECLARE_METATYPE(zl::dmr::BmStatic)
Q_DECLARE_METATYPE(zl::dmr::BmProfile)
