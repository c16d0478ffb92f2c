#pragma once

#include <QMetaObject>
#include <QObject>

#include <memory>
#include <type_traits>
#include <utility>

namespace zl {

// The distribution's Qt is not built with ThreadSanitizer, so the lock inside QtCore that
// hands a queued call to another thread is invisible to it, and every such call would look
// like a race. Under ThreadSanitizer these two tell it of the hand-over; otherwise they do
// nothing. handOff() goes before a call is queued for another thread, takeOver() before a
// queued call is delivered. (The test programs hook both into every signal emission and
// event delivery; calls queued by hand go through postTo.)
void handOff();
void takeOver();

// Runs f on target's thread, queued. f is copied before the hand-over; what Qt carries
// across is only a pointer to it. (A call whose target goes first is never run, and its
// copy of f is not freed.)
template <class F>
void postTo(QObject* target, F&& f)
{
    auto* call = new std::decay_t<F>(std::forward<F>(f));
    handOff();
    QMetaObject::invokeMethod(
        target,
        [call] {
            const std::unique_ptr<std::decay_t<F>> owned(call);
            (*owned)();
        },
        Qt::QueuedConnection);
}

} // namespace zl
