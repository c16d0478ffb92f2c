#pragma once

#include <QByteArray>
#include <QtGlobal>

// G.711 mu-law, as in the ITU recommendation: bias 132, magnitudes clipped to 32635.
namespace zl::iax {

quint8 linearToMuLaw(qint16 sample);
qint16 muLawToLinear(quint8 code);

// Little-endian 16-bit PCM to one mu-law byte per sample, and back.
QByteArray encodeMuLaw(const QByteArray& pcm);
QByteArray decodeMuLaw(const QByteArray& codes);

} // namespace zl::iax
