#!/bin/sh
# The installation: `cmake --install` into a temporary prefix, then the
# installed programs run from there, away from the source and build trees,
# with a clean environment.
#   install_test.sh BUILD_DIR WORK_DIR
set -eu
build=$1
work=$2
prefix=$work/prefix
rm -rf "$work"
mkdir -p "$work/run"
fail() { echo "install_test: $*" >&2; exit 1; }

cmake --install "$build" --prefix "$prefix" >/dev/null || fail "cmake --install failed"

# Every file of the installation.
for f in bin/tesconv include/tessel.h share/Quilla/Filters/udf-def.dat share/X11/app-defaults/Quilla \
         share/man/man1/tesconv.1 share/man/man1/quilla.1 share/applications/quilla.desktop \
         share/icons/hicolor/64x64/apps/quilla.png; do
  [ -f "$prefix/$f" ] || fail "missing $f"
done
lib=$(find "$prefix" -name 'libtessel.so' | head -n 1)
[ -n "$lib" ] || fail "missing libtessel.so"
libdir=$(dirname "$lib")
readelf -d "$lib" | grep -q 'SONAME.*\[libtessel\.so\.3\]' || fail "libtessel.so has no soname libtessel.so.3"
[ -e "$libdir/libtessel.so.3" ] || fail "missing libtessel.so.3"
[ -f "$libdir/pkgconfig/libtessel.pc" ] || fail "missing libtessel.pc"
grep -q '^Quilla\*QuillSlide\*background: Black$' "$prefix/share/X11/app-defaults/Quilla" ||
  fail "the app-defaults file lacks the built-in resources"
grep -q '^Icon=quilla$' "$prefix/share/applications/quilla.desktop" || fail "the desktop entry names no icon"

cd "$work/run"
clean() { env -i PATH=/usr/bin:/bin HOME="$work/run" "$@"; }

# The installed converter uses the installed library.
used=$(clean ldd "$prefix/bin/tesconv" | sed -n 's/.*libtessel\.so\.3 => \([^ ]*\).*/\1/p')
[ -n "$used" ] && [ "$(readlink -f "$used")" = "$(readlink -f "$libdir/libtessel.so.3")" ] ||
  fail "tesconv does not use the installed library (${used:-none})"
clean "$prefix/bin/tesconv" -formats | grep -q 'jxl' || fail "tesconv -formats"
printf 'P6\n3 2\n255\n\001\002\003\004\005\006\007\010\011\012\013\014\015\016\017\020\021\022' > in.ppm
clean "$prefix/bin/tesconv" -out png -o out.png in.ppm || fail "tesconv could not convert"
clean "$prefix/bin/tesconv" -info out.png | grep -q 'Size: *3x2' || fail "tesconv -info of its own output"
clean "$prefix/bin/tesconv" -info "$prefix/share/icons/hicolor/64x64/apps/quilla.png" | grep -q 'Size: *64x64' ||
  fail "the icon is not a 64x64 picture"

# A program built against the installed header and library with pkg-config.
cat > use.c <<'C'
#include <stdio.h>
#include <tessel.h>
int main(void) {
  char v[16];
  tslInitLibrary();
  tslVersion(v);
  printf("%s %d\n", v, tslFormatGetIndex("png") >= 0);
  return 0;
}
C
flags=$(PKG_CONFIG_PATH="$libdir/pkgconfig" pkg-config --cflags --libs libtessel) || fail "pkg-config libtessel"
cc use.c $flags -Wl,-rpath,"$libdir" -o use || fail "cannot build against the installed library"
[ "$(./use)" = "3.87 1" ] || fail "the installed library answers $(./use)"

# The installed viewer starts and prints its usage (it needs a display).
if [ -f "$build/quilla" ] || [ -f "$prefix/bin/quilla" ]; then
  [ -x "$prefix/bin/quilla" ] || fail "missing bin/quilla"
  if [ -n "${QUILLA_TEST_DISPLAY:-}" ]; then
    out=$(env -i PATH=/usr/bin:/bin HOME="$work/run" DISPLAY="$QUILLA_TEST_DISPLAY" "$prefix/bin/quilla" -help 2>&1) ||
      fail "quilla -help failed: $out"
    echo "$out" | grep -q 'Usage' || fail "quilla -help printed: $out"
  else
    echo "install_test: no QUILLA_TEST_DISPLAY, quilla -help not run"
  fi
fi
rm -rf "$work"
echo "install_test: ok"
