#!/usr/bin/env bash
# Thumbnail benchmark of the browser's loop (without a window): a directory
# of photo-like 12-megapixel JPEGs turned into 92x69 thumbnails,
#   - by `djpeg -scale 1/8` of every file, one after another (the peer: the
#     DCT-scaled decode that any thumbnailer of JPEGs has to do),
#   - by the loop on one thread and with the decode-ahead workers (one per
#     processor), without a cache,
#   - by the loop with the cache: first visit (stores) and second visit
#     (reads back),
# all in one run, reported as ratios to the djpeg time.
#
#   bench/thumbnails.sh                     24 files of 4000x3000, best of 3
#   BENCH_FILES=120 bench/thumbnails.sh     the full-size directory
#   BENCH_SIZE=800x600 bench/thumbnails.sh  a quick trial
#   QUILLA_BUILD_DIR=build-rel bench/thumbnails.sh
set -uo pipefail
cd "$(dirname "$0")/.."
export LC_ALL=C

BUILD=${QUILLA_BUILD_DIR:-build}
RUNS=${BENCH_RUNS:-3}
FILES=${BENCH_FILES:-24}
SIZE=${BENCH_SIZE:-4000x3000}
DISTINCT=${BENCH_DISTINCT:-4}   # pictures drawn; the rest are copies of them
THUMBLOOP="$BUILD/thumbloop"
if [ ! -x "$THUMBLOOP" ]; then
  echo "thumbnails: $THUMBLOOP not found; build first (cmake --build $BUILD --target thumbloop)" >&2
  exit 1
fi
for tool in convert djpeg; do
  command -v "$tool" >/dev/null || { echo "thumbnails: $tool is needed" >&2; exit 1; }
done

WORK=$(mktemp -d "${TMPDIR:-/tmp}/quilla-thumbs.XXXXXX")
trap 'rm -rf "$WORK"' EXIT
trap 'exit 130' INT TERM
PICS="$WORK/pics"
mkdir -p "$PICS"

echo "thumbnails: drawing $DISTINCT pictures of $SIZE, $FILES files in all"
for ((n = 0; n < DISTINCT && n < FILES; n++)); do
  convert -seed "$n" -size "$SIZE" plasma:fractal -blur 0x1 -quality 90 "$PICS/photo$n.jpg" || exit 1
done
for ((n = DISTINCT; n < FILES; n++)); do
  cp "$PICS/photo$((n % DISTINCT)).jpg" "$PICS/photo$n.jpg"
done

now() { date +%s.%N; }
# Best wall time of $RUNS runs of a command.
best() {
  local best="" t0 t1 t
  for ((r = 0; r < RUNS; r++)); do
    t0=$(now)
    "$@" >/dev/null || { echo "thumbnails: failed: $*" >&2; return 1; }
    t1=$(now)
    t=$(echo "$t1 - $t0" | bc)
    if [ -z "$best" ] || [ "$(echo "$t < $best" | bc)" = 1 ]; then best=$t; fi
  done
  echo "$best"
}

djpeg_all() {
  for f in "$PICS"/*.jpg; do djpeg -scale 1/8 "$f" >/dev/null || return 1; done
}

# The cache's two visits: each run starts from an empty cache.
cache_first() {
  rm -rf "$WORK/cache"
  "$THUMBLOOP" -cache "$WORK/cache" "$PICS"
}
cache_second() { "$THUMBLOOP" -cache "$WORK/cache" "$PICS"; }

t_djpeg=$(best djpeg_all) || exit 1
t_one=$(best "$THUMBLOOP" -threads 0 "$PICS") || exit 1
t_pool=$(best "$THUMBLOOP" -threads -1 "$PICS") || exit 1
t_first=$(best cache_first) || exit 1
t_second=$(best cache_second) || exit 1
workers=$("$THUMBLOOP" -threads -1 -mode 3 "$PICS" | sed 's/.*workers \([0-9]*\).*/\1/')

ratio() { printf '%.2f' "$(echo "$1 / $2" | bc -l)"; }
echo
echo "$FILES JPEGs of $SIZE, thumbnails 92x69, best of $RUNS, $(nproc) processors"
printf '%-44s %8s %8s\n' "" "seconds" "ratio"
printf '%-44s %8.3f %8s\n' "djpeg -scale 1/8, one file after another" "$t_djpeg" "1.00"
printf '%-44s %8.3f %8s\n' "loop, one thread, no cache" "$t_one" "$(ratio "$t_one" "$t_djpeg")"
printf '%-44s %8.3f %8s\n' "loop, $workers decode-ahead workers, no cache" "$t_pool" "$(ratio "$t_pool" "$t_djpeg")"
printf '%-44s %8.3f %8s\n' "loop with cache, first visit (workers)" "$t_first" "$(ratio "$t_first" "$t_djpeg")"
printf '%-44s %8.3f %8s\n' "loop with cache, second visit" "$t_second" "$(ratio "$t_second" "$t_djpeg")"
echo
echo "first visit / second visit: $(ratio "$t_first" "$t_second")"
echo "workers / one thread:       $(ratio "$t_pool" "$t_one")"
