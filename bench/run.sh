#!/usr/bin/env bash
# Benchmarks of tesconv against the peers installed from Debian: djpeg
# (libjpeg-turbo-progs), vips/vipsthumbnail (libvips-tools), gm
# (graphicsmagick) and convert (imagemagick).  Everything runs in one go on
# the same machine, so the ratios (ours / fastest peer) are what matters; the
# absolute times depend on the machine.
#
#   bench/run.sh                 uses build/ (QUILLA_BUILD_DIR to change)
#   BENCH_RUNS=5 bench/run.sh    best of 5 instead of 3
#   BENCH_SIZE=400x300 bench/run.sh   a quick trial on a small picture
#
# With hyperfine installed each command is timed by it (minimum of the
# runs); otherwise by a shell loop around `date +%s.%N`, best of the runs.
set -uo pipefail
cd "$(dirname "$0")/.."

BUILD=${QUILLA_BUILD_DIR:-build}
RUNS=${BENCH_RUNS:-3}
SIZE=${BENCH_SIZE:-4000x3000}   # a smaller size makes a quick trial run
TESCONV="$BUILD/tools/tesconv/tesconv"
MKSAMPLES="$BUILD/tools/mksamples/mksamples"
if [ ! -x "$TESCONV" ]; then
  echo "bench: $TESCONV not found; build first (cmake --build $BUILD)" >&2
  exit 1
fi

WORK=$(mktemp -d "${TMPDIR:-/tmp}/quilla-bench.XXXXXX")
trap 'rm -rf "$WORK"' EXIT
BIG="$WORK/big.jpg"
PPM="$WORK/big.ppm"
OUT="$WORK/out"
mkdir -p "$OUT"

have() { command -v "$1" >/dev/null 2>&1; }

# The 12-megapixel test picture: our own photo-like scene, else ImageMagick's.
if [ -x "$MKSAMPLES" ] && "$MKSAMPLES" -scene "$SIZE" "$BIG" 2>/dev/null; then
  echo "test picture: $SIZE JPEG from mksamples"
elif have convert; then
  convert -size "$SIZE" gradient:navy-gold -attenuate 0.4 +noise Gaussian -quality 90 "$BIG"
  echo "test picture: $SIZE JPEG from ImageMagick"
else
  echo "bench: cannot make the test picture" >&2
  exit 1
fi
# Operations are timed on a PPM so that the codecs weigh little.
if have djpeg; then djpeg -outfile "$PPM" "$BIG"; else "$TESCONV" -out ppm -o "$PPM" "$BIG"; fi
# The 3x3 kernel of "Enhance Detail"-like sharpening, for the peers.
printf '3 3\n0 -1 0\n-1 5 -1\n0 -1 0\n' > "$WORK/sharpen.mat"
KERNEL="0,-1,0,-1,5,-1,0,-1,0"

# best_time CMD...: prints the best wall time in seconds, or "fail".
best_time() {
  if have hyperfine; then
    local csv="$WORK/hf.csv"
    if hyperfine --runs "$RUNS" --style none --export-csv "$csv" -- "$(printf '%q ' "$@")" >/dev/null 2>&1; then
      awk -F, 'NR == 2 { printf "%.3f", $7 }' "$csv"
      return
    fi
    printf 'fail'
    return
  fi
  local best="" t0 t1 d
  for ((i = 0; i < RUNS; ++i)); do
    t0=$(date +%s.%N)
    if ! "$@" >/dev/null 2>&1; then printf 'fail'; return; fi
    t1=$(date +%s.%N)
    d=$(echo "$t1 - $t0" | bc -l)
    if [ -z "$best" ] || [ "$(echo "$d < $best" | bc -l)" = 1 ]; then best=$d; fi
  done
  printf '%.3f' "$best"
}

PEERS=(djpeg vips gm convert)
printf '%-28s %9s %9s %9s %9s %9s %11s\n' "operation" "ours (s)" "djpeg" "vips" "gm" "convert" "ours/best"
printf '%-28s %9s %9s %9s %9s %9s %11s\n' "---------" "--------" "-----" "----" "--" "-------" "---------"

# row NAME OURS_CMD DJPEG_CMD VIPS_CMD GM_CMD CONVERT_CMD  (each a string; "" = no such peer)
row() {
  local name=$1 ours=$2
  shift 2
  local t_ours times=() best="" t tool
  t_ours=$(eval "best_time $ours")
  local k=0
  for cmd in "$@"; do
    tool=${PEERS[$k]}
    k=$((k + 1))
    if [ -z "$cmd" ] || ! have "${cmd%% *}"; then times+=("-"); continue; fi
    t=$(eval "best_time $cmd")
    times+=("$t")
    if [ "$t" != fail ] && { [ -z "$best" ] || [ "$(echo "$t < $best" | bc -l)" = 1 ]; }; then best=$t; fi
  done
  local ratio="-"
  if [ -n "$best" ] && [ "$t_ours" != fail ] && [ "$(echo "$best > 0" | bc -l)" = 1 ]; then
    ratio=$(printf '%.2f' "$(echo "$t_ours / $best" | bc -l)")
  fi
  printf '%-28s %9s %9s %9s %9s %9s %11s\n' "$name" "$t_ours" "${times[0]}" "${times[1]}" "${times[2]}" "${times[3]}" "$ratio"
}

T="$TESCONV -j 1"
row "decode JPEG" \
  "$T -out ppm -o $OUT/a.ppm $BIG" \
  "djpeg -outfile $OUT/b.ppm $BIG" \
  "vips copy $BIG $OUT/c.ppm" \
  "gm convert $BIG $OUT/d.ppm" \
  "convert $BIG $OUT/e.ppm"
row "reduced load to 92x69" \
  "$T -thumb 92x69 -out ppm -o $OUT/a.ppm $BIG" \
  "djpeg -scale 1/8 -outfile $OUT/b.ppm $BIG" \
  "vipsthumbnail $BIG -s 92x69 -o $OUT/c.ppm" \
  "gm convert -size 184x138 $BIG -thumbnail 92x69 $OUT/d.ppm" \
  "convert $BIG -thumbnail 92x69 $OUT/e.ppm"
row "JPEG to PNG" \
  "$T -out png -o $OUT/a.png $BIG" \
  "" \
  "vips copy $BIG $OUT/c.png" \
  "gm convert $BIG $OUT/d.png" \
  "convert $BIG $OUT/e.png"
row "median 3x3" \
  "$T -medianb 3 -out ppm -o $OUT/a.ppm $PPM" "" \
  "vips rank $PPM $OUT/c.ppm 3 3 4" \
  "gm convert $PPM -median 1 $OUT/d.ppm" \
  "convert $PPM -median 3 $OUT/e.ppm"
row "gaussian 3x3" \
  "$T -gauss 3 -out ppm -o $OUT/a.ppm $PPM" "" \
  "vips gaussblur $PPM $OUT/c.ppm 0.8 --min-ampl 0.1" \
  "gm convert $PPM -blur 1x0.8 $OUT/d.ppm" \
  "convert $PPM -blur 1x0.8 $OUT/e.ppm"
row "3x3 kernel (-edetail)" \
  "$T -edetail -out ppm -o $OUT/a.ppm $PPM" "" \
  "vips conv $PPM $OUT/c.ppm $WORK/sharpen.mat" \
  "gm convert $PPM -convolve $KERNEL $OUT/d.ppm" \
  "convert $PPM -convolve $KERNEL $OUT/e.ppm"
row "brightness" \
  "$T -brightness 20 -out ppm -o $OUT/a.ppm $PPM" "" \
  "vips linear $PPM $OUT/c.ppm 1 20 --uchar" \
  "gm convert $PPM -modulate 110 $OUT/d.ppm" \
  "convert $PPM -modulate 110 $OUT/e.ppm"
row "resize to 50%" \
  "$T -resize 50% 50% -out ppm -o $OUT/a.ppm $PPM" "" \
  "vips resize $PPM $OUT/c.ppm 0.5" \
  "gm convert $PPM -resize 50% $OUT/d.ppm" \
  "convert $PPM -resize 50% $OUT/e.ppm"
row "rotate 90" \
  "$T -rotate 90 -out ppm -o $OUT/a.ppm $PPM" "" \
  "vips rot $PPM $OUT/c.ppm d90" \
  "gm convert $PPM -rotate 90 $OUT/d.ppm" \
  "convert $PPM -rotate 90 $OUT/e.ppm"
row "rotate 17 degrees" \
  "$T -rotate 17 -out ppm -o $OUT/a.ppm $PPM" "" \
  "vips similarity $PPM $OUT/c.ppm --angle 17" \
  "gm convert $PPM -rotate 17 $OUT/d.ppm" \
  "convert $PPM -rotate 17 $OUT/e.ppm"
echo
echo "best of $RUNS runs; ours/best < 1 means tesconv was faster than every peer"
