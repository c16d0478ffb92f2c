#!/usr/bin/env bash
# Mutation sample: does the test suite catch faults?
#
# Each line of scripts/mutants.txt is a one-line fault (a flipped mask, an off-by-one, a swapped
# field, a wrong timer value...). For each one this script puts the fault into the source, rebuilds,
# runs the QtTest suites the fault can reach, notes which of them fail (they "kill" the mutant) and
# puts the file back, always, also on Ctrl-C. The result is a table: mutant, file, caught, killers.
#
# Usage: scripts/mutation.sh [options] [build dir]      (build dir: build-mut in the work tree)
#   -o FILE    also write the table and the summaries to FILE
#   -m FILE    mutant list (default: scripts/mutants.txt of this work tree)
#   -k IDS     run only these mutants (comma-separated ids; a trailing * matches a prefix: "dmr*,iax03")
#   -j N       parallel build and test jobs (default 2)
#   -t SEC     time limit per suite in seconds (default 120)
#   -x REGEX   exclude further suites (extended regex on the CTest name)
#   -a         run every suite for every mutant, not only the suites whose executable changed
#   -c         only check that every mutant applies (exactly one match), build nothing
#
# Which suites run: only the QtTest suites (CTest names tst_*). Not run: clang_format,
# desktop_file and appstream_metainfo (they read no code), and the suites that already fail on the
# unmutated tree (listed in the output; they cannot tell a mutant apart).
# A mutant can only be caught by a suite whose executable it changes. Libraries are static, so
# after each rebuild the script compares the executables with those of the clean build and runs only
# the suites whose executable changed, plus the suites that start the zephyrlake program when the
# program changed. -a runs everything instead (much slower, same answer).
#
# A suite that fails is run again and counts only if it fails twice (some suites talk to real
# servers and fail now and then on a loaded machine).
#
# A mutant that does not build counts as "not compiled"; one whose text is missing or not unique
# counts as "not applied". Both are reported and make the exit status 1: fix the list and rerun.
#
# Make a baseline on one work tree and compare with another:
#   scripts/mutation.sh -o /tmp/before.txt build-mut      (in the first tree)
#   scripts/mutation.sh -o /tmp/after.txt build-mut       (in the second)
set -euo pipefail
shopt -u patsub_replacement 2>/dev/null || true
# The whole script is one block, read before it runs: editing the file during a run cannot change
# the run.
{

root=$(cd "$(dirname "$0")/.." && pwd)
mutants="$root/scripts/mutants.txt"
out=""
only=""
jobs=2
limit=120
exclude_extra=""
run_all=0
check_only=0

while getopts "o:m:k:j:t:x:ach" opt; do
    case $opt in
    o) out=$OPTARG ;;
    m) mutants=$OPTARG ;;
    k) only=$OPTARG ;;
    j) jobs=$OPTARG ;;
    t) limit=$OPTARG ;;
    x) exclude_extra=$OPTARG ;;
    a) run_all=1 ;;
    c) check_only=1 ;;
    h)
        sed -n '2,/^set -euo/p' "$0" | sed '$d; s/^# \{0,1\}//'
        exit 0
        ;;
    *) exit 2 ;;
    esac
done
shift $((OPTIND - 1))
build=${1:-$root/build-mut}
case $build in /*) ;; *) build=$PWD/$build ;; esac
[ -n "$out" ] && case $out in /*) ;; *) out=$PWD/$out ;; esac
case $mutants in /*) ;; *) mutants=$PWD/$mutants ;; esac
cd "$root"

# Suites never run (see above), as an extended regex on the CTest name.
exclude="^(clang_format|desktop_file|appstream_metainfo)$"

log() { printf '%s\n' "$*" >&2; }

# ---- the mutant list ---------------------------------------------------------------------------

ids=() files=() finds=() repls=() whats=()
while IFS= read -r line || [ -n "$line" ]; do
    case $line in '' | '#'*) continue ;; esac
    IFS=$'\t' read -r id file find repl what <<<"$line"
    if [ -z "$id" ] || [ -z "$file" ] || [ -z "$find" ] || [ -z "${repl+x}" ]; then
        log "mutation.sh: malformed line in $mutants: $line"
        exit 2
    fi
    if [ -n "$only" ]; then
        keep=0
        IFS=, read -ra wanted <<<"$only"
        for w in "${wanted[@]}"; do
            case $w in
            *'*') [[ $id == "${w%\*}"* ]] && keep=1 ;;
            *) [ "$id" = "$w" ] && keep=1 ;;
            esac
        done
        [ $keep = 1 ] || continue
    fi
    ids+=("$id") files+=("$file") finds+=("$find") repls+=("$repl") whats+=("${what:-}")
done <"$mutants"
[ ${#ids[@]} -gt 0 ] || { log "mutation.sh: no mutants selected"; exit 2; }

# Prints how often the exact text $2 occurs in file $1 (occurrences, not lines).
occurrences() {
    local content find=$2
    content=$(cat "$1" && printf x)
    content=${content%x}
    local rest=${content//"$find"/}
    echo $(((${#content} - ${#rest}) / ${#find}))
}

# Replaces the one occurrence of $2 in file $1 by $3, keeping every other byte.
replace_once() {
    local content
    content=$(cat "$1" && printf x)
    content=${content%x}
    printf '%s' "${content/"$2"/"$3"}" >"$1"
}

applicable=()
bad=0
for i in "${!ids[@]}"; do
    f=${files[$i]}
    if [ ! -f "$f" ]; then
        n=missing
    else
        n=$(occurrences "$f" "${finds[$i]}")
    fi
    if [ "$n" = 1 ]; then
        applicable+=(1)
    else
        applicable+=(0)
        bad=1
        log "mutation.sh: ${ids[$i]}: the text occurs $n times in $f (needs exactly 1): ${finds[$i]}"
    fi
done
if [ $check_only = 1 ]; then
    [ $bad = 0 ] && log "mutation.sh: all ${#ids[@]} mutants apply"
    exit $bad
fi

# ---- restoring, always -------------------------------------------------------------------------

work=$(mktemp -d "${TMPDIR:-/tmp}/mutation.XXXXXX")
current=""
restore() {
    if [ -n "$current" ]; then
        cp "$work/original" "$current"
        # A new time stamp, so that the next build compiles the restored file again (from ccache).
        touch "$current"
        current=""
    fi
}
cleanup() {
    restore
    rm -rf "$work"
}
trap cleanup EXIT
# Before the mutants: stop at once. During them: the running build or suites stop (they get the
# signal too), the source is restored, and the table of the mutants done so far is printed.
interrupted=0
in_loop=0
on_signal() {
    restore
    if [ $in_loop = 1 ]; then
        interrupted=1
    else
        log "mutation.sh: interrupted, source restored"
        exit 130
    fi
}
trap on_signal INT TERM HUP

# ---- clean build and reference run -------------------------------------------------------------

if [ ! -f "$build/build.ninja" ]; then
    log "mutation.sh: configuring $build"
    # Every mutant relinks dozens of test executables: lld, where installed, links them about three
    # times faster than the default linker. The linker changes nothing the suites can see.
    linker=()
    command -v ld.lld >/dev/null && linker=(-DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=lld)
    cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DZL_BUILD_BENCH=OFF "${linker[@]}" \
        >"$work/configure.log" || { cat "$work/configure.log" >&2; exit 1; }
fi
log "mutation.sh: building the unmutated tree in $build"
ninja -C "$build" -j "$jobs" >"$work/build.log" 2>&1 || { tail -40 "$work/build.log" >&2; exit 1; }

suites=()
while read -r name; do
    [[ $name =~ ^tst_ ]] || continue
    [[ $name =~ $exclude ]] && continue
    [ -n "$exclude_extra" ] && [[ $name =~ $exclude_extra ]] && continue
    suites+=("$name")
done < <(ctest --test-dir "$build" -N | sed -n 's/^ *Test *#[0-9]*: *//p')
[ ${#suites[@]} -gt 0 ] || { log "mutation.sh: no QtTest suites found in $build"; exit 1; }

program=$(find "$build" -maxdepth 3 -type f -name zephyrlake -perm -u+x -not -path '*/CMakeFiles/*' | head -n 1)
# The suites that start the program carry its path, as UTF-8 or (QStringLiteral) as UTF-16.
program_utf16=""
if [ -n "$program" ]; then
    program_utf16=$(printf '%s' "$program" | od -An -v -tx1 | tr -d ' \n' | sed 's/\(..\)/\\x\1\\x00/g')
fi
declare -A exe=() clean_hash=() spawns=()
for s in "${suites[@]}"; do
    exe[$s]=$(find "$build/tests" -type f -name "$s" -perm -u+x | head -n 1)
    [ -n "${exe[$s]}" ] || { log "mutation.sh: no executable for $s"; exit 1; }
    if [ -n "$program" ] && { grep -qaF "$program" "${exe[$s]}" || LC_ALL=C grep -qaP "$program_utf16" "${exe[$s]}"; }; then
        spawns[$s]=1
    fi
done
[ ${#spawns[@]} -eq 0 ] || log "mutation.sh: suites that start the program: ${!spawns[*]}"

hash_all() {
    local s
    for s in "${suites[@]}"; do printf '%s %s\n' "$s" "$(md5sum <"${exe[$s]}")"; done
    [ -n "$program" ] && printf '%s %s\n' "=program" "$(md5sum <"$program")"
    return 0
}

# Runs the named suites; prints the names of those that failed, timed out or crashed.
run_suites() {
    local regex
    regex="^($(
        IFS='|'
        echo "$*"
    ))\$"
    # QTEST_FUNCTION_TIMEOUT stops a test function that hangs (a mutant may never reach its end).
    QTEST_FUNCTION_TIMEOUT=$((limit * 1000)) ctest --test-dir "$build" -j "$jobs" --timeout "$limit" \
        -R "$regex" >"$work/ctest.log" 2>&1 || true
    sed -n 's/^.*Test *#[0-9]*: *\([^ ]*\) .*$/\1 &/p' "$work/ctest.log" | grep -v ' Passed ' | cut -d' ' -f1 |
        sort -u
}

# A suite that fails is run once more: only a second failure counts. Some suites talk to real
# servers (PulseAudio, svxlink, iaxmodem) and fail now and then on a loaded machine.
run_twice() {
    local first
    mapfile -t first < <(run_suites "$@")
    [ ${#first[@]} -gt 0 ] && [ -n "${first[0]}" ] || return 0
    run_suites "${first[@]}"
}

while read -r s h; do clean_hash[$s]=$h; done < <(hash_all)

log "mutation.sh: reference run of ${#suites[@]} suites on the unmutated tree"
start=$(date +%s)
mapfile -t broken < <(run_twice "${suites[@]}")
ref_secs=$(($(date +%s) - start))
cp "$work/ctest.log" "$work/reference.log"
declare -A unusable=()
for s in "${broken[@]}"; do
    [ -n "$s" ] || continue
    unusable[$s]=1
    log "mutation.sh: $s fails on the unmutated tree: not counted"
done

# ---- the table ---------------------------------------------------------------------------------

report() {
    printf '# Mutation sample, %s, commit %s, build %s\n' "$(date -u '+%Y-%m-%d %H:%M UTC')" \
        "$(git -C "$root" rev-parse --short HEAD 2>/dev/null || echo '?')" "$build"
    printf '# suites: %d QtTest suites; not run: %s' "${#suites[@]}" "$exclude"
    if [ -n "$exclude_extra" ]; then printf ' and %s' "$exclude_extra"; fi
    printf '\n'
    for s in "${!unusable[@]}"; do printf '# %s fails on the unmutated tree: not counted\n' "$s"; done
    printf '\n%-12s %-9s %-34s %-13s %6s  %s\n' mutant subsys file caught secs "killed by"
    local row id sub f caught killed secs
    for row in "${rows[@]}"; do
        IFS='|' read -r id sub f caught killed secs <<<"$row"
        printf '%-12s %-9s %-34s %-13s %6s  %s\n' "$id" "$sub" "$f" "$caught" "$secs" "$killed"
    done

    printf '\nCaught per subsystem (caught / mutants built and tested)\n'
    local subs
    subs=$(for row in "${rows[@]}"; do cut -d'|' -f2 <<<"$row"; done | awk '!seen[$0]++')
    local all_c=0 all_t=0 all_bad=0 all_left=0
    for s in $subs; do
        local c=0 t=0 bad=0 left=0
        for row in "${rows[@]}"; do
            IFS='|' read -r id sub f caught killed secs <<<"$row"
            [ "$sub" = "$s" ] || continue
            case $caught in
            yes) c=$((c + 1)) t=$((t + 1)) ;;
            no) t=$((t + 1)) ;;
            "not run") left=$((left + 1)) ;;
            *) bad=$((bad + 1)) ;;
            esac
        done
        all_c=$((all_c + c)) all_t=$((all_t + t)) all_bad=$((all_bad + bad)) all_left=$((all_left + left))
        printf '  %-10s %2d / %2d' "$s" "$c" "$t"
        if [ $bad -gt 0 ]; then printf '   %d not compiled or not applied' "$bad"; fi
        if [ $left -gt 0 ]; then printf '   %d not run' "$left"; fi
        printf '\n'
    done
    printf '  %-10s %2d / %2d' total "$all_c" "$all_t"
    if [ $all_bad -gt 0 ]; then printf '   %d not compiled or not applied' "$all_bad"; fi
    if [ $all_left -gt 0 ]; then printf '   %d not run' "$all_left"; fi
    printf '\n'

    printf '\nMutants killed per suite (killed / mutants that changed the suite)\n'
    for s in "${suites[@]}"; do
        [ -n "${reached[$s]:-}" ] || continue
        printf '  %-24s %2d / %2d\n' "$s" "${kills[$s]:-0}" "${reached[$s]}"
    done | sort -k2,2nr -k1,1
    local never=()
    for s in "${suites[@]}"; do [ -n "${reached[$s]:-}" ] || never+=("$s"); done
    if [ ${#never[@]} -gt 0 ]; then printf '  changed by no mutant: %s\n' "${never[*]}"; fi

    local n=$done_count
    printf '\nReference run %ds; %d mutants in %ds, %ds per mutant\n' "$ref_secs" "$n" "$total_secs" \
        $((n > 0 ? total_secs / n : 0))
}

# ---- the mutants -------------------------------------------------------------------------------

# The order of the run takes the subsystems in turn (the first mutant of each, then the second...),
# so that a run cut short still samples every subsystem; the table keeps the order of the list.
declare -A kills=() reached=() rank=()
rows=()
order=()
for i in "${!ids[@]}"; do
    sub=${files[$i]#src/}
    sub=${sub%%/*}
    rank[$sub]=$((${rank[$sub]:-0} + 1))
    order+=("$(printf '%04d %04d %d' "${rank[$sub]}" "$i" "$i")")
    rows+=("${ids[$i]}|$sub|${files[$i]}|not run|-|-")
done
mapfile -t order < <(printf '%s\n' "${order[@]}" | sort | cut -d' ' -f3)
status=0
done_count=0
total_start=$(date +%s)
in_loop=1
for i in "${order[@]}"; do
    [ $interrupted = 0 ] || break
    id=${ids[$i]} f=${files[$i]}
    sub=${f#src/}
    sub=${sub%%/*}
    t0=$(date +%s)
    if [ "${applicable[$i]}" != 1 ]; then
        rows[$i]="$id|$sub|$f|not applied|-|0"
        status=1
        continue
    fi
    cp "$f" "$work/original"
    current=$f
    replace_once "$f" "${finds[$i]}" "${repls[$i]}"
    log "mutation.sh: [$((done_count + 1))/${#ids[@]}] $id $f"
    if ! ninja -C "$build" -j "$jobs" >"$work/build.log" 2>&1; then
        restore
        [ $interrupted = 0 ] || break
        cp "$work/build.log" "$work/$id.build.log"
        log "mutation.sh: $id does not build:"
        grep -m 5 'error' "$work/build.log" >&2 || true
        rows[$i]="$id|$sub|$f|not compiled|-|$(($(date +%s) - t0))"
        status=1
        done_count=$((done_count + 1))
        continue
    fi
    restore
    changed=()
    program_changed=0
    while read -r s h; do
        if [ "$s" = "=program" ]; then
            [ "$h" = "${clean_hash[$s]}" ] || program_changed=1
        elif [ $run_all = 1 ] || [ "$h" != "${clean_hash[$s]}" ]; then
            changed+=("$s")
        fi
    done < <(hash_all)
    if [ $program_changed = 1 ] && [ $run_all = 0 ]; then
        for s in "${!spawns[@]}"; do
            [[ " ${changed[*]} " == *" $s "* ]] || changed+=("$s")
        done
    fi
    killers=()
    if [ ${#changed[@]} -gt 0 ]; then
        for s in "${changed[@]}"; do reached[$s]=$((${reached[$s]:-0} + 1)); done
        while read -r s; do
            [ -n "$s" ] || continue
            [ -n "${unusable[$s]:-}" ] && continue
            killers+=("$s")
            kills[$s]=$((${kills[$s]:-0} + 1))
        done < <(run_twice "${changed[@]}")
    fi
    if [ ${#killers[@]} -gt 0 ]; then
        caught=yes
        killed=$(IFS=,; echo "${killers[*]}")
    else
        caught=no
        killed="-"
    fi
    # Suites stopped by Ctrl-C fail without the mutant's help: that mutant does not count.
    [ $interrupted = 0 ] || break
    secs=$(($(date +%s) - t0))
    rows[$i]="$id|$sub|$f|$caught|$killed|$secs"
    done_count=$((done_count + 1))
    log "mutation.sh: $id caught: $caught ($killed), ${#changed[@]} suites run, ${secs}s"
    total_secs=$(($(date +%s) - total_start))
    [ -z "$out" ] || report >"$out"
done
in_loop=0
total_secs=$(($(date +%s) - total_start))
[ $interrupted = 0 ] || { log "mutation.sh: interrupted, source restored; the table holds the mutants done"; status=130; }

report
if [ -n "$out" ]; then
    report >"$out"
    log "mutation.sh: table written to $out"
fi
exit $status
}
