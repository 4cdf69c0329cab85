#!/usr/bin/env bash
# Multi Convert of photo-like JPEGs to PNG: the dialog's run with its worker
# threads on every core, the same run in one thread (each file converted
# inside the work procedure's step), and `tesconv -j 2` on the same files.
# The runs go through bench/batchrun.cc, which drives the batch model as the
# dialog's work procedure does, with the converter's PNG level (6).
#
# Every round runs the three commands one after the other, BENCH_RUNS rounds;
# the table shows each command's median and its ratio to tesconv's.  The
# outputs of the threaded run and of tesconv are compared byte for byte.
#
#   bench/batch.sh                       100 pictures of 4000x3000, 3 rounds
#   BENCH_FILES=20 bench/batch.sh        fewer pictures
#   BENCH_RUNS=5 bench/batch.sh          5 rounds
#   BENCH_PHOTOS=/tmp/photos bench/batch.sh   keep the pictures there (made once)
#   BENCH_SIZE=800x600 bench/batch.sh    a quick trial on small pictures
set -uo pipefail
cd "$(dirname "$0")/.."

BUILD=${QUILLA_BUILD_DIR:-build}
RUNS=${BENCH_RUNS:-3}
FILES=${BENCH_FILES:-100}
SIZE=${BENCH_SIZE:-4000x3000}
TESCONV="$BUILD/tools/tesconv/tesconv"
BATCHRUN="$BUILD/batchrun"
for p in "$TESCONV" "$BATCHRUN"; do
  if [ ! -x "$p" ]; then
    echo "bench: $p not found; build first (cmake --build $BUILD --target tesconv batchrun)" >&2
    exit 1
  fi
done
if ! command -v convert >/dev/null 2>&1; then
  echo "bench: needs ImageMagick's convert (the test pictures)" >&2
  exit 1
fi

WORK=$(mktemp -d "${TMPDIR:-/tmp}/quilla-batch.XXXXXX")
trap 'rm -rf "$WORK"' EXIT
PHOTOS=${BENCH_PHOTOS:-$WORK/photos}
OUT="$WORK/out"
mkdir -p "$PHOTOS" "$OUT"

# The pictures: plasma fractals, lightly blurred, at quality 90 (the fine
# detail and noise of photographs), one seed each.
INPUTS=()
for n in $(seq 1 "$FILES"); do
  f="$PHOTOS/photo$n.jpg"
  [ -f "$f" ] || convert -seed "$n" -size "$SIZE" plasma:fractal -blur 0x1 -quality 90 "$f" || exit 1
  INPUTS+=("$f")
done

run_once() { # CMD...: wall time in seconds, or "fail"
  rm -f "$OUT"/*
  local t0=$EPOCHREALTIME
  if ! "$@" >/dev/null 2>&1; then printf 'fail'; return; fi
  local t1=$EPOCHREALTIME
  printf '%.3f' "$(echo "$t1 - $t0" | bc -l)"
}
median() {
  local v
  for v in "$@"; do [ "$v" = fail ] && { printf 'fail'; return; }; done
  printf '%s\n' "$@" | sort -g | awk '{ v[NR] = $1 } END { printf "%.3f", NR % 2 ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2 }'
}

threaded=() single=() peer=()
for r in $(seq 1 "$RUNS"); do
  threaded+=("$(run_once "$BATCHRUN" -j 0 -out png -o "$OUT" "${INPUTS[@]}")")
  single+=("$(run_once "$BATCHRUN" -j 1 -out png -o "$OUT" "${INPUTS[@]}")")
  peer+=("$(run_once "$TESCONV" -j 2 -out png -o "$OUT/" "${INPUTS[@]}")")
done

# The same bytes from the threaded run and from tesconv.
mkdir -p "$WORK/ours"
"$BATCHRUN" -j 0 -out png -o "$WORK/ours" "${INPUTS[@]}" >/dev/null
same=0
for f in "$WORK/ours"/*.png; do cmp -s "$f" "$OUT/$(basename "$f")" && same=$((same + 1)); done

mt=$(median "${threaded[@]}") st=$(median "${single[@]}") pt=$(median "${peer[@]}")
ratio() { [ "$1" = fail ] || [ "$pt" = fail ] && { printf -- '-'; return; }; printf '%.2f' "$(echo "$1 / $pt" | bc -l)"; }
echo "Multi Convert of $FILES JPEGs ($SIZE) to PNG, $(nproc) cores, median of $RUNS interleaved rounds"
printf '%-34s %9s %12s\n' "command" "time (s)" "/ tesconv"
printf '%-34s %9s %12s\n' "-------" "--------" "---------"
printf '%-34s %9s %12s\n' "batch run, workers on every core" "$mt" "$(ratio "$mt")"
printf '%-34s %9s %12s\n' "batch run, one thread" "$st" "$(ratio "$st")"
printf '%-34s %9s %12s\n' "tesconv -j 2" "$pt" "1.00"
echo "rounds: threaded ${threaded[*]}; one thread ${single[*]}; tesconv ${peer[*]}"
echo "outputs identical to tesconv's: $same of $FILES"
