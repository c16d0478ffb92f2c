#pragma once

#include "app/ThreadHandOff.h"

#include <QCoreApplication>
#include <QTest>

// Qt's hook into every signal emission (exported by QtCore, declared in its private headers).
struct QSignalSpyCallbackSet {
    using BeginCallback = void (*)(QObject* caller, int signalOrMethodIndex, void** argv);
    using EndCallback = void (*)(QObject* caller, int signalOrMethodIndex);
    BeginCallback signal_begin_callback;
    BeginCallback slot_begin_callback;
    EndCallback signal_end_callback;
    EndCallback slot_end_callback;
};
Q_CORE_EXPORT void qt_register_signal_spy_callbacks(QSignalSpyCallbackSet* callbackSet);

// The application of the suites whose objects live on several threads. It tells
// ThreadSanitizer of each hand-over between threads that Qt makes invisibly: every signal
// emitted may queue a call (hand-off), every event delivered may be one (take-over), and
// what a thread did while handling an event is handed on when it is done (a blocking queued
// call returns then). This orders more than Qt does, so two handlers race only when they
// really run at the same time: races are found where they overlap, never invented.
template <class Base>
class ThreadedTestApplication : public Base {
public:
    ThreadedTestApplication(int& argc, char** argv) : Base(argc, argv)
    {
        static QSignalSpyCallbackSet hooks{[](QObject*, int, void**) { zl::handOff(); }, nullptr, nullptr, nullptr};
        qt_register_signal_spy_callbacks(&hooks);
    }

    bool notify(QObject* receiver, QEvent* event) override
    {
        zl::takeOver();
        const bool handled = Base::notify(receiver, event);
        zl::handOff();
        return handled;
    }
};

#define ZL_THREADED_TEST_MAIN(App, TestObject)                                                                         \
    int main(int argc, char** argv)                                                                                    \
    {                                                                                                                  \
        ThreadedTestApplication<App> app(argc, argv);                                                                  \
        TestObject tc;                                                                                                 \
        QTEST_SET_MAIN_SOURCE_PATH                                                                                     \
        return QTest::qExec(&tc, argc, argv);                                                                          \
    }
