#!/bin/sh
# Installs every Debian package needed to build, run and test zephyrlake.
# Idempotent: packages already present are left alone. Works as root or through sudo.
set -eu

PACKAGES="
build-essential cmake ninja-build ccache pkg-config git file
clang clang-format libclang-rt-14-dev
qt6-base-dev qt6-base-dev-tools qt6-multimedia-dev qt6-serialport-dev
qt6-qpa-plugins qt6-l10n-tools
libcodec2-dev libopus-dev libgsm1-dev libssl-dev libunicorn-dev binutils-arm-none-eabi
libspdlog-dev libfmt-dev
libbenchmark-dev
ladspa-sdk swh-plugins cmt
pulseaudio pulseaudio-utils xvfb xauth util-linux procps iproute2
espeak-ng sox
svxlink-server iaxmodem tshark direwolf
desktop-file-utils appstream
"

missing=""
for p in $PACKAGES; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
        missing="$missing $p"
    fi
done
[ -z "$missing" ] && exit 0

if [ "$(id -u)" -eq 0 ]; then
    SUDO=""
else
    SUDO="sudo"
fi
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -q
# shellcheck disable=SC2086
$SUDO apt-get install -y -q --no-install-recommends $missing
