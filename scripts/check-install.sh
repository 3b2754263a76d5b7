#!/usr/bin/env bash
# Installs a built tree into a temporary prefix and uses it the way a host project
# would: builds examples/consumer against the installed CMake package and runs it,
# checks the pkg-config file, and checks that the shared library exports only the
# Veloran API and that no internal header is installed.
#   scripts/check-install.sh <build dir> <media file>
set -euo pipefail
cd "$(dirname "$0")/.."
build=$1
media=$2
prefix=$(mktemp -d /tmp/vrfetcher-prefix.XXXXXX)
trap 'rm -rf "$prefix"' EXIT

cmake --install "$build" --prefix "$prefix" >/dev/null

echo "-- exported symbols"
# Strong symbols must all be ours; weak ones are inline or template code of Qt's
# headers that the compiler emitted out of line (for example in Debug builds).
bad=$(nm -D --defined-only "$prefix"/lib/libVrFetcher.so | awk '$2 ~ /^[TDBR]$/ {print $3}' \
      | c++filt | grep -v -E '^(Veloran::|typeinfo (name )?for Veloran::|vtable for Veloran::|non-virtual thunk to Veloran::|_init$|_fini$|_edata$|_end$|__bss_start$)' \
      || true)
if [ -n "$bad" ]; then
  echo "symbols outside the Veloran API are exported:" >&2
  echo "$bad" | head -20 >&2
  exit 1
fi
for internal in AVPickerManager AVPicker VideoPicker AudioPicker; do
  if nm -D --defined-only "$prefix"/lib/libVrFetcher.so | c++filt | grep -q "Veloran::$internal::"; then
    echo "internal class $internal is exported" >&2
    exit 1
  fi
done

echo "-- installed headers"
for internal in AVPickerManager.h AVPicker.h VideoPicker.h AudioPicker.h AVFetcher.h; do
  if find "$prefix/include" -name "$internal" | grep -q .; then
    echo "internal header $internal is installed" >&2
    exit 1
  fi
done
readlink "$prefix/lib/libVrFetcher.so" | grep -q '^libVrFetcher.so.1$'

echo "-- pkg-config"
PKG_CONFIG_PATH="$prefix/lib/pkgconfig" pkg-config --cflags --libs vrfetcher >/dev/null

echo "-- consumer example against the installed package"
cmake -S examples/consumer -B "$prefix/consumer-build" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$prefix/consumer-build" >/dev/null
QT_QPA_PLATFORM=offscreen LD_LIBRARY_PATH="$prefix/lib" timeout 120 "$prefix/consumer-build/vrfetcher-consumer" "$media"
echo "install check passed"
