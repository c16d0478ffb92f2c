#include "app/ThreadHandOff.h"

#if defined(__SANITIZE_THREAD__)
extern "C" void __tsan_acquire(void* addr);
extern "C" void __tsan_release(void* addr);
#endif

namespace zl {

#if defined(__SANITIZE_THREAD__)
namespace {
// One synchronisation point for all hand-overs: more order than Qt guarantees, never less.
char handOffPoint;
} // namespace

void handOff()
{
    __tsan_release(&handOffPoint);
}

void takeOver()
{
    __tsan_acquire(&handOffPoint);
}
#else
void handOff()
{
}
void takeOver()
{
}
#endif

} // namespace zl
