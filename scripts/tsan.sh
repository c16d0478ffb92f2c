#!/bin/sh
# Builds the suites whose objects live on several threads with ThreadSanitizer and runs them.
# Qt's glib event loop is switched off: its wake-ups are invisible to the race detector.
set -eu
cd "$(dirname "$0")/.."
jobs=$(nproc)
suites="tst_dv3000 tst_dv3000pool tst_dmrvoice tst_dmrwindow"
cmake -S . -B build-tsan -G Ninja -DCMAKE_BUILD_TYPE=Debug -DZL_SANITIZE=thread
# shellcheck disable=SC2086
cmake --build build-tsan -j "$jobs" --target $suites
export TSAN_OPTIONS="halt_on_error=1 exitcode=66 ignore_noninstrumented_modules=1 suppressions=$PWD/tests/tsan.supp"
export QT_NO_GLIB=1 QT_QPA_PLATFORM=offscreen
for suite in $suites; do
    path=$(find build-tsan/tests -type f -name "$suite" -perm -u+x | head -n 1)
    echo "== $suite (ThreadSanitizer)"
    "$path"
done
