#include "YsfCrc.h"

#include "app/CrcCcitt.h"

namespace zl::ysf {

quint16 ysfCrc(QByteArrayView data)
{
    return crcCcitt(data);
}

} // namespace zl::ysf
