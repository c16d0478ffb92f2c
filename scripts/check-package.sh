#!/bin/sh
# Checks the .deb that scripts/package.sh made: its contents and dependencies, and, in CI only
# (it changes the machine), that it installs with apt and the installed program starts.
set -eu
cd "$(dirname "$0")/.."
deb=$(ls build-release/zephyrlake_*.deb | head -n 1)
info=$(dpkg-deb --info "$deb")
contents=$(dpkg-deb --contents "$deb")
fail=0
for path in ./usr/bin/zephyrlake ./usr/share/zephyrlake/style.qss ./usr/share/zephyrlake/DMR_Hosts.txt \
    ./usr/share/applications/io.github.zephyrlake.Zephyrlake.desktop \
    ./usr/share/metainfo/io.github.zephyrlake.Zephyrlake.metainfo.xml \
    ./usr/share/icons/hicolor/scalable/apps/zephyrlake.svg \
    ./usr/share/icons/hicolor/48x48/apps/zephyrlake.png \
    ./usr/share/icons/hicolor/256x256/apps/zephyrlake.png \
    ./usr/lib/udev/rules.d/60-zephyrlake-dv3000.rules; do
    if ! printf '%s\n' "$contents" | grep -q " $path\$"; then
        echo "check-package: $path missing from $deb"
        fail=1
    fi
done
depends=$(printf '%s\n' "$info" | sed -n 's/^ Depends: //p')
for lib in libqt6core6 libqt6widgets6 libqt6network6 libqt6multimedia6 libqt6serialport6 libcodec2 libopus0 \
    libgsm1 libssl3 libunicorn2 libspdlog1 libfmt9 qt6-qpa-plugins; do
    if ! printf '%s\n' "$depends" | grep -q "$lib"; then
        echo "check-package: Depends lacks $lib: $depends"
        fail=1
    fi
done
[ "$fail" -eq 0 ] || exit 1
echo "check-package: $deb holds every file; Depends: $depends"

if [ "${CI:-}" = true ]; then
    apt-get install -y -q "./$deb"
    /usr/bin/zephyrlake --version
fi
