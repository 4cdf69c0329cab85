#!/usr/bin/env bash
# Benchmarks of tesconv against the peers installed from Debian: djpeg
# (libjpeg-turbo-progs), vips/vipsthumbnail (libvips-tools), gm
# (graphicsmagick) and convert (imagemagick), on photo-like pictures.
#
# Every row runs our command and every peer's in the same round, one after
# the other, and repeats the round BENCH_RUNS times; the table shows the
# median of each command and the ratio of our median to the best peer's.
# Interleaving spreads the load of a busy machine over all commands alike.
#
#   bench/run.sh                      build/ (QUILLA_BUILD_DIR to change), 5 rounds
#   BENCH_RUNS=9 bench/run.sh         9 rounds
#   BENCH_ROWS="png gauss" bench/run.sh   only the rows whose key is listed
#   BENCH_PEERS="djpeg vips" bench/run.sh only these peers (gm and convert are slow)
#   BENCH_SIZE=400x300 bench/run.sh   a quick trial on small pictures
#   BENCH_SCENE=1 bench/run.sh        the smooth mksamples scene as a second picture
#   BENCH_BEFORE=build-old bench/run.sh   also times the tesconv of another build
#                                     in the same rounds (a "before" column)
#
# Row keys: decode thumb png median gauss kernel bright resize rot90 rot17.
set -uo pipefail
cd "$(dirname "$0")/.."

BUILD=${QUILLA_BUILD_DIR:-build}
RUNS=${BENCH_RUNS:-5}
SIZE=${BENCH_SIZE:-4000x3000}
ROWS=" ${BENCH_ROWS:-decode thumb png median gauss kernel bright resize rot90 rot17} "
PEERS=(djpeg vips gm convert)
USE_PEERS=" ${BENCH_PEERS:-${PEERS[*]}} "
TESCONV="$BUILD/tools/tesconv/tesconv"
BEFORE=""
[ -n "${BENCH_BEFORE:-}" ] && BEFORE="${BENCH_BEFORE}/tools/tesconv/tesconv"
MKSAMPLES="$BUILD/tools/mksamples/mksamples"
if [ ! -x "$TESCONV" ]; then
  echo "bench: $TESCONV not found; build first (cmake --build $BUILD)" >&2
  exit 1
fi
have() { command -v "$1" >/dev/null 2>&1; }
if ! have convert || ! have djpeg; then
  echo "bench: needs ImageMagick's convert (the test pictures) and djpeg" >&2
  exit 1
fi

WORK=$(mktemp -d "${TMPDIR:-/tmp}/quilla-bench.XXXXXX")
trap 'rm -rf "$WORK"' EXIT
OUT="$WORK/out"
mkdir -p "$OUT"

# The pictures: a plasma fractal, lightly blurred, saved at quality 90, has
# the fine detail and noise of a photograph (a smooth synthetic scene
# compresses and filters far more easily).  Their PPM comes from djpeg.
PICTURES=(photo1)
convert -seed 1 -size "$SIZE" plasma:fractal -blur 0x1 -quality 90 "$WORK/photo1.jpg"
if [ -n "${BENCH_SCENE:-}" ] && [ -x "$MKSAMPLES" ] && "$MKSAMPLES" -scene "$SIZE" "$WORK/scene.jpg" 2>/dev/null; then
  PICTURES+=(scene)
fi
for p in "${PICTURES[@]}"; do djpeg -outfile "$WORK/$p.ppm" "$WORK/$p.jpg"; done
printf '3 3\n0 -1 0\n-1 5 -1\n0 -1 0\n' >"$WORK/sharpen.mat"
KERNEL="0,-1,0,-1,5,-1,0,-1,0"

# run_once CMD: wall time of one run in seconds, or "fail".  The outputs of
# earlier runs are removed first: every command writes a new file.
run_once() {
  rm -f "$OUT"/*
  local t0=$EPOCHREALTIME
  if ! eval "$1" >/dev/null 2>&1; then printf 'fail'; return; fi
  local t1=$EPOCHREALTIME
  printf '%.4f' "$(echo "$t1 - $t0" | bc -l)"
}
median() { # values... ("fail" wins)
  local v
  for v in "$@"; do [ "$v" = fail ] && { printf 'fail'; return; }; done
  printf '%s\n' "$@" | sort -g | awk '{ v[NR] = $1 } END { printf "%.3f", NR % 2 ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2 }'
}

# Columns: ours, [before,] the peers, ours/best[, before/best].
header() {
  if [ -n "$BEFORE" ]; then
    printf '%-30s %8s %8s %8s %8s %8s %8s %10s %12s\n' "$@"
  else
    printf '%-30s %8s %8s %8s %8s %8s %10s\n' "${@:1:2}" "${@:4:5}"
  fi
}
header "operation" "ours (s)" "before" "djpeg" "vips" "gm" "convert" "ours/best" "before/best"
header "---------" "--------" "------" "-----" "----" "--" "-------" "---------" "-----------"

# row KEY NAME OURS DJPEG VIPS GM CONVERT (command strings; "" = no such peer)
row() {
  local key=$1 name=$2
  shift 2
  [[ $ROWS == *" $key "* ]] || return 0
  local cmds=("$@") k r
  # The other build's command, timed in the same rounds, goes last.
  [ -n "$BEFORE" ] && cmds+=("${cmds[0]/$TESCONV/$BEFORE}")
  local peers=$(($# - 1))
  for ((k = 1; k <= peers; ++k)); do
    local tool=${PEERS[$((k - 1))]}
    if [ -z "${cmds[$k]}" ] || [[ $USE_PEERS != *" $tool "* ]] || ! have "${cmds[$k]%% *}"; then cmds[$k]=""; fi
  done
  declare -A times=()
  for ((r = 0; r < RUNS; ++r)); do
    for ((k = 0; k < ${#cmds[@]}; ++k)); do
      [ -n "${cmds[$k]}" ] && times[$k]+="$(run_once "${cmds[$k]}") "
    done
  done
  local med=() best=""
  for ((k = 0; k < ${#cmds[@]}; ++k)); do
    if [ -z "${cmds[$k]}" ]; then med+=("-"); continue; fi
    # shellcheck disable=SC2086
    med+=("$(median ${times[$k]})")
    if ((k > 0 && k <= peers)) && [ "${med[$k]}" != fail ] && { [ -z "$best" ] || [ "$(echo "${med[$k]} < $best" | bc -l)" = 1 ]; }; then
      best=${med[$k]}
    fi
  done
  over_best() { # median: its ratio to the best peer's median, or "-"
    if [ -n "$best" ] && [ "$1" != fail ] && [ "$(echo "$best > 0" | bc -l)" = 1 ]; then
      printf '%.2f' "$(echo "$1 / $best" | bc -l)"
    else
      printf -- '-'
    fi
  }
  header "$name" "${med[0]}" "${med[$((peers + 1))]:-}" "${med[@]:1:peers}" "$(over_best "${med[0]}")" \
    "$(over_best "${med[$((peers + 1))]:-fail}")"
}

T="$TESCONV -j 1"
for p in "${PICTURES[@]}"; do
  JPG="$WORK/$p.jpg"
  PPM="$WORK/$p.ppm"
  echo "$p: $SIZE, $(wc -c <"$JPG") bytes of JPEG"
  row decode "decode JPEG" \
    "$T -out ppm -o $OUT/a.ppm $JPG" \
    "djpeg -outfile $OUT/b.ppm $JPG" \
    "vips copy $JPG $OUT/c.ppm" \
    "gm convert $JPG $OUT/d.ppm" \
    "convert $JPG $OUT/e.ppm"
  row thumb "reduced load to 92x69" \
    "$T -thumb 92x69 -out ppm -o $OUT/a.ppm $JPG" \
    "djpeg -scale 1/8 -outfile $OUT/b.ppm $JPG" \
    "vipsthumbnail $JPG -s 92x69 -o $OUT/c.ppm" \
    "gm convert -size 184x138 $JPG -thumbnail 92x69 $OUT/d.ppm" \
    "convert $JPG -thumbnail 92x69 $OUT/e.ppm"
  row png "JPEG to PNG" \
    "$T -out png -o $OUT/a.png $JPG" "" \
    "vips copy $JPG $OUT/c.png" \
    "gm convert $JPG $OUT/d.png" \
    "convert $JPG $OUT/e.png"
  if [[ $ROWS == *" png "* ]] && [[ $USE_PEERS == *" vips "* ]] && have vips; then
    # The size to beat: libvips with every PNG filter tried on each row.
    $T -out png -o "$OUT/a.png" "$JPG"
    vips copy "$JPG" "$OUT/c.png"
    vips copy "$JPG" "$OUT/f.png[filter=all]"
    s_ours=$(wc -c <"$OUT/a.png") s_vips=$(wc -c <"$OUT/c.png") s_all=$(wc -c <"$OUT/f.png")
    printf '%-30s %8s %8s %8s (bytes; ours / filter=all %.3f)\n' "  PNG size: ours, vips, vips[filter=all]" \
      "$s_ours" "$s_vips" "$s_all" "$(echo "$s_ours / $s_all" | bc -l)"
  fi
  row median "median 3x3" \
    "$T -medianb 3 -out ppm -o $OUT/a.ppm $PPM" "" \
    "vips rank $PPM $OUT/c.ppm 3 3 4" \
    "gm convert $PPM -median 1 $OUT/d.ppm" \
    "convert $PPM -median 3 $OUT/e.ppm"
  row gauss "gaussian 3" \
    "$T -gauss 3 -out ppm -o $OUT/a.ppm $PPM" "" \
    "vips gaussblur $PPM $OUT/c.ppm 0.9" \
    "gm convert $PPM -blur 1x0.9 $OUT/d.ppm" \
    "convert $PPM -blur 1x0.9 $OUT/e.ppm"
  row kernel "3x3 kernel (-edetail)" \
    "$T -edetail -out ppm -o $OUT/a.ppm $PPM" "" \
    "vips conv $PPM $OUT/c.ppm $WORK/sharpen.mat --precision integer" \
    "gm convert $PPM -convolve $KERNEL $OUT/d.ppm" \
    "convert $PPM -convolve $KERNEL $OUT/e.ppm"
  row bright "brightness" \
    "$T -brightness 20 -out ppm -o $OUT/a.ppm $PPM" "" \
    "vips linear $PPM $OUT/c.ppm 1 20 --uchar" \
    "gm convert $PPM -modulate 110 $OUT/d.ppm" \
    "convert $PPM -modulate 110 $OUT/e.ppm"
  row resize "resize 50% linear" \
    "$T -resize 50% 50% -out ppm -o $OUT/a.ppm $PPM" "" \
    "vips resize $PPM $OUT/c.ppm 0.5 --kernel linear" \
    "gm convert $PPM -filter triangle -resize 50% $OUT/d.ppm" \
    "convert $PPM -filter triangle -resize 50% $OUT/e.ppm"
  row rot90 "rotate 90" \
    "$T -rotate 90 -out ppm -o $OUT/a.ppm $PPM" "" \
    "vips rot $PPM $OUT/c.ppm d90" \
    "gm convert $PPM -rotate 90 $OUT/d.ppm" \
    "convert $PPM -rotate 90 $OUT/e.ppm"
  row rot17 "rotate 17 degrees" \
    "$T -rotate 17 -out ppm -o $OUT/a.ppm $PPM" "" \
    "vips similarity $PPM $OUT/c.ppm --angle 17" \
    "gm convert $PPM -rotate 17 $OUT/d.ppm" \
    "convert $PPM -rotate 17 $OUT/e.ppm"
done
echo
echo "median of $RUNS interleaved rounds; ours/best < 1 means tesconv was faster than every peer"
