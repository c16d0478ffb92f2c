#include "app/TimeScale.h"

#include <QtGlobal>

#include <algorithm>

namespace zl {

int timeScale()
{
    static const int scale = std::clamp(qEnvironmentVariableIntValue("ZL_TIME_SCALE"), 1, 1000);
    return scale;
}

} // namespace zl
