#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

namespace zl::ysf {

// The 120-byte payload of a V/D mode 2 frame: sync, FICH, five blocks of DCH slice and voice.
inline constexpr qsizetype kSyncSize = 5;
inline constexpr qsizetype kFichOffset = 5;
inline constexpr qsizetype kDataOffset = 30;
inline constexpr int kVoiceFieldsPerFrame = 5;
QByteArray ysfSync();
// Offsets of the five 13-byte voice fields.
qsizetype voiceFieldOffset(int i);

struct PayloadIdentity {
    QString source;
    QString destination;
    quint8 dgId = 0;
};

// fi 0 (header) and 2 (terminator) carry the callsign data; fi 1 carries the five voice
// fields of ambeBlock when it is given.
QByteArray buildPayload(int fi, int fn, const PayloadIdentity& id, const QList<QByteArray>& ambeBlock = {});

} // namespace zl::ysf
