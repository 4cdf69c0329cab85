#!/usr/bin/env bash
# Thumbnail benchmark of the browser's loop (without a window): a directory
# of photo-like 12-megapixel JPEGs turned into 92x69 thumbnails,
#   - by `djpeg -scale 1/8` of every file, one after another (the peer: the
#     DCT-scaled decode that any thumbnailer of JPEGs has to do),
#   - by the loop on one thread and with the decode-ahead workers (one per
#     processor), without a cache,
#   - by the loop with the cache: first visit (stores) and second visit
#     (reads back),
#   - by the program itself (quilla on the directory, large icons, cache on,
#     QUILLA_EXIT_AFTER_THUMBNAILS=1): first and second visit, start-up and
#     window included, when an X server is given (BENCH_DISPLAY or DISPLAY),
#     and how long a key press waits while its thumbnails are made,
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

# Best wall time of $RUNS runs of a command, and the processor time (user +
# system, all threads) of that run: "WALL CPU".  On a machine shared with
# other work the processor time is the steadier figure.
TIMEFORMAT='%R %U %S'
best() {
  local best="" cpu="" line wall
  for ((r = 0; r < RUNS; r++)); do
    line=$( { time "$@" >/dev/null 2>&1; } 2>&1 ) || { echo "thumbnails: failed: $*" >&2; return 1; }
    read -r wall u s <<<"$line"
    if [ -z "$best" ] || [ "$(echo "$wall < $best" | bc)" = 1 ]; then
      best=$wall
      cpu=$(echo "$u + $s" | bc)
    fi
  done
  echo "$best $cpu"
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

read -r t_djpeg c_djpeg <<<"$(best djpeg_all)" || exit 1
read -r t_one c_one <<<"$(best "$THUMBLOOP" -threads 0 "$PICS")" || exit 1
read -r t_pool c_pool <<<"$(best "$THUMBLOOP" -threads -1 "$PICS")" || exit 1
read -r t_first c_first <<<"$(best cache_first)" || exit 1
read -r t_second c_second <<<"$(best cache_second)" || exit 1
# The program: a fresh HOME holds its settings (caching on) and its cache.
QUILLA="$BUILD/quilla"
XDISPLAY=${BENCH_DISPLAY:-${DISPLAY:-}}
program_run() {
  HOME="$WORK/home" DISPLAY="$XDISPLAY" QUILLA_EXIT_AFTER_THUMBNAILS=1 "$QUILLA" -ini "$WORK/home/rc" "$PICS"
}
program_first() {
  rm -rf "$WORK/home"
  mkdir -p "$WORK/home"
  printf 'Cache.IsActive = True\nBrowser.IconWidth = 92\nBrowser.IconHeight = 69\n' >"$WORK/home/rc"
  program_run
}
t_prog1=""
keys=""
if [ -x "$QUILLA" ] && [ -n "$XDISPLAY" ]; then
  read -r t_prog1 c_prog1 <<<"$(best program_first)" || exit 1
  read -r t_prog2 c_prog2 <<<"$(best program_run)" || exit 1
  # A Right key every 100 ms while the thumbnails are made (no cache).
  if [ -x "$BUILD/keylatency" ]; then
    keys=$(HOME="$WORK/home" "$BUILD/keylatency" "$XDISPLAY" "$PICS")
  fi
fi
workers=$("$THUMBLOOP" -threads -1 -mode 3 "$PICS" | sed 's/.*workers \([0-9]*\).*/\1/')

ratio() { printf '%.2f' "$(echo "$1 / $2" | bc -l)"; }
row() { printf '%-44s %8.3f %6s %8.3f %6s\n' "$1" "$2" "$(ratio "$2" "$t_djpeg")" "$3" "$(ratio "$3" "$c_djpeg")"; }
echo
echo "$FILES JPEGs of $SIZE, thumbnails 92x69, best of $RUNS, $(nproc) processors, load $(cut -d' ' -f1 /proc/loadavg)"
printf '%-44s %8s %6s %8s %6s\n' "" "wall s" "ratio" "cpu s" "ratio"
row "djpeg -scale 1/8, one file after another" "$t_djpeg" "$c_djpeg"
row "loop, one thread, no cache" "$t_one" "$c_one"
row "loop, $workers decode-ahead workers, no cache" "$t_pool" "$c_pool"
row "loop with cache, first visit (workers)" "$t_first" "$c_first"
row "loop with cache, second visit" "$t_second" "$c_second"
if [ -n "$t_prog1" ]; then
  row "quilla browser, cache on, first visit" "$t_prog1" "$c_prog1"
  row "quilla browser, cache on, second visit" "$t_prog2" "$c_prog2"
fi
echo
echo "first visit / second visit (wall): $(ratio "$t_first" "$t_second")"
if [ -n "$t_prog1" ]; then
  echo "program, first / second visit (wall): $(ratio "$t_prog1" "$t_prog2")"
fi
if [ -n "$keys" ]; then
  read -r _ n _ median _ worst _ <<<"$keys"
  echo "key press during the loop: $n presses, median $median ms, longest $worst ms"
fi
echo "workers / one thread (wall):       $(ratio "$t_pool" "$t_one")"
