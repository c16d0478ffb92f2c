#!/bin/sh
# Pictures of the main window and of every settings tab at the screen sizes users have: the
# Raspberry Pi 7-inch screen (800x480), a laptop (1366x768) and full HD, for review by eye.
# Runs the built program under Xvfb as the user nobody, with a made-up configuration.
# Usage: scripts/screenshots.sh [build folder] [output folder] [Qt scale factor]
set -eu
cd "$(dirname "$0")/.."
build=${1:-build-asan}
out=${2:-screenshots}
scale=${3:-1}
program=$(realpath "$build/zephyrlake")
mkdir -p "$out"
out=$(realpath "$out")

home=$(mktemp -d)
trap 'rm -rf "$home"' EXIT

# A made-up configuration, fresh for each screen size: no window geometry carries over.
fresh_config() {
    rm -rf "$home/config" "$home/cache" "$home/state"
    mkdir -p "$home/config/xx0abc/zephyrlake"
    cat > "$home/config/xx0abc/zephyrlake/config.json" <<'JSON'
{
  "general": {"callsign": "XX0ABC", "default_mode": "DMR"},
  "hardware": {"ambe_md380_enabled": false},
  "identities": {
    "dmr": [{"label": "Home", "callsign": "XX0ABC", "id_field": "2400001", "essid": "01"}],
    "m17": [{"label": "Home", "callsign": "XX0ABC", "id_field": "A"}]
  },
  "dmr": {"peers": [
    {"label": "BM Europe", "network": "Brandmeister", "server": "127.0.0.1:9", "identity_label": "Home",
     "active_tg": 91, "auto_connect": false},
    {"label": "TGIF", "network": "TGIF", "server": "127.0.0.1:9", "identity_label": "Home", "auto_connect": false}
  ]},
  "lastheard": {"entries": [
    {"time": "12:00:03", "call": "XX1DEF", "mode": "M17", "server": "M17-XXX", "target": "A", "dur": "12.4 s"},
    {"time": "12:00:01", "call": "2400002", "mode": "DMR", "server": "Brandmeister", "target": "TG 91 TS2",
     "dur": "1:05"}
  ]}
}
JSON
    chown -R nobody "$home"
}

display=97
for size in 800x480 1366x768 1920x1080; do
    fresh_config
    Xvfb ":$display" -screen 0 "${size}x24" -nolisten tcp >/dev/null 2>&1 &
    xvfb=$!
    sleep 1
    env -i PATH="$PATH" HOME="$home" XDG_CONFIG_HOME="$home/config" XDG_CACHE_HOME="$home/cache" \
        XDG_STATE_HOME="$home/state" DISPLAY=":$display" QT_QPA_PLATFORM=xcb QT_SCALE_FACTOR="$scale" \
        ASAN_OPTIONS=detect_leaks=0 runuser -u nobody -- "$program" >"$home/program.log" 2>&1 &
    app=$!
    main=$(DISPLAY=":$display" xdotool search --sync --onlyvisible --name "zephyrlake" | head -n 1)
    sleep 4
    DISPLAY=":$display" xwd -root -silent | convert xwd:- "$out/main-$size.png"
    DISPLAY=":$display" xdotool windowfocus --sync "$main" key ctrl+comma
    dialog=$(DISPLAY=":$display" xdotool search --sync --onlyvisible --name "Settings" | head -n 1)
    sleep 1
    for tab in $(seq -w 1 17); do
        DISPLAY=":$display" xwd -id "$dialog" -silent | convert xwd:- "$out/settings-$size-$tab.png"
        DISPLAY=":$display" xdotool windowfocus --sync "$dialog" key ctrl+Tab
        sleep 0.5
    done
    kill "$app" 2>/dev/null || true
    wait "$app" 2>/dev/null || true
    kill "$xvfb"
    wait "$xvfb" 2>/dev/null || true
done
echo "screenshots in $out"
