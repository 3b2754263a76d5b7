#!/usr/bin/env bash
# Installs a built tree the way a packager would (a prefix chosen at install time,
# different from the configured one, staged under DESTDIR) and uses it the way a host
# project would: compiles every installed header on its own, builds examples/consumer
# against the installed CMake package and, separately, with nothing but pkg-config,
# and runs both. Also checks that the shared library exports only the Veloran API and
# that no internal header is installed.
#   scripts/check-install.sh <build dir> <media file>
set -euo pipefail
cd "$(dirname "$0")/.."
build=$1
media=$(realpath "$2")
cached() { sed -n "s/^$1:[A-Z]*=//p" "$build/CMakeCache.txt"; }
libdir=$(cached CMAKE_INSTALL_LIBDIR)
configured=$(cached CMAKE_INSTALL_PREFIX)

stage=$(mktemp -d /tmp/vrfetcher-stage.XXXXXX)
trap 'rm -rf "$stage"' EXIT
installed=/opt/vrfetcher-check
if [ "$installed" = "$configured" ]; then installed=/opt/vrfetcher-check2; fi
DESTDIR="$stage" cmake --install "$build" --prefix "$installed" >/dev/null
prefix=$stage$installed
lib=$prefix/$libdir
work=$stage/work

echo "-- exported symbols"
# Strong symbols must all be ours; weak ones are inline or template code of Qt's
# headers that the compiler emitted out of line (for example in Debug builds).
bad=$(nm -D --defined-only "$lib/libVrFetcher.so" | awk '$2 ~ /^[TDBR]$/ {print $3}' \
      | c++filt | grep -v -E '^(Veloran::|typeinfo (name )?for Veloran::|vtable for Veloran::|non-virtual thunk to Veloran::|_init$|_fini$|_edata$|_end$|__bss_start$)' \
      || true)
if [ -n "$bad" ]; then
  echo "symbols outside the Veloran API are exported:" >&2
  echo "$bad" | head -20 >&2
  exit 1
fi
for internal in AVPickerManager AVPicker VideoPicker AudioPicker; do
  if nm -D --defined-only "$lib/libVrFetcher.so" | c++filt | grep -q "Veloran::$internal::"; then
    echo "internal class $internal is exported" >&2
    exit 1
  fi
done

echo "-- installed headers"
for internal in AVPickerManager.h AVPicker.h VideoPicker.h AudioPicker.h AVFetcher.h SchedulingRules.h \
                ReadDeadline.h VobChapterScan.h SpeedCurve.h JsonDuplicateKeys.h; do
  if find "$prefix/include" -name "$internal" | grep -q .; then
    echo "internal header $internal is installed" >&2
    exit 1
  fi
done
readlink "$lib/libVrFetcher.so" | grep -q '^libVrFetcher.so.1$'

echo "-- pkg-config"
export PKG_CONFIG_PATH=$lib/pkgconfig${PKG_CONFIG_PATH:+:$PKG_CONFIG_PATH}
pc_prefix=$(realpath -m "$(pkg-config --variable=prefix vrfetcher)")
if [ "$pc_prefix" != "$prefix" ]; then
  echo "vrfetcher.pc names the prefix $pc_prefix instead of $prefix" >&2
  exit 1
fi
pc_flags=$(pkg-config --cflags --libs vrfetcher)

echo "-- every installed header compiles on its own"
mkdir -p "$work/headers"
(cd "$prefix/include/VrFetcher" && find . -name '*.h' -printf '%P\n') | while read -r header; do
  echo "#include <$header>" > "$work/headers/${header//\//_}.cpp"
done
# shellcheck disable=SC2016 # expanded by the inner shell
find "$work/headers" -name '*.cpp' -print0 \
  | xargs -0 -P "$(nproc)" -I{} sh -c 'g++ -std=c++17 -fsyntax-only $1 "$2" || { echo "$2 does not compile alone" >&2; exit 255; }' \
      sh "$(pkg-config --cflags vrfetcher)" {}

echo "-- consumer example through the CMake package"
cmake -S examples/consumer -B "$work/cmake" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/cmake" >/dev/null

echo "-- consumer example through pkg-config"
# shellcheck disable=SC2086 # the flags are a word list
g++ -std=c++17 examples/consumer/main.cpp -o "$work/consumer-pc" $pc_flags

for consumer in "$work/cmake/vrfetcher-consumer" "$work/consumer-pc"; do
  echo "-- running ${consumer#"$work"/}"
  (cd "$work" && QT_QPA_PLATFORM=offscreen LD_LIBRARY_PATH="$lib" timeout 120 "$consumer" "$media")
done
echo "install check passed"
