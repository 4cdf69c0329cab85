#!/usr/bin/env bash
# Start-up benchmark of the viewer: time from `quilla FILE` to the first
# complete paint of a photo-like 12-megapixel JPEG, against djpeg decoding
# the same file and against the viewers ImageMagick `display`, `feh` and
# `xloadimage`; and the viewer's peak memory against the size of the decoded
# picture.
#
#   bench/first_paint.sh                  uses build/ (QUILLA_BUILD_DIR to change)
#   BENCH_RUNS=5 bench/first_paint.sh     5 runs (rounds) instead of 3
#   BENCH_VERBOSE=1 bench/first_paint.sh  also every watched run
#   BENCH_SIZE=400x300 bench/first_paint.sh   a quick trial on a small picture
#   BENCH_INSTALL=0 bench/first_paint.sh  never install the optional peers
#
# Without DISPLAY the script starts its own Xvfb (1280x1024, 24 bits) and
# stops it at the end.  See bench/README.md for the method and its biases.
set -uo pipefail
cd "$(dirname "$0")/.."
export LC_ALL=C   # decimal points in bc, printf and $EPOCHREALTIME

BUILD=${QUILLA_BUILD_DIR:-build}
RUNS=${BENCH_RUNS:-3}
SIZE=${BENCH_SIZE:-4000x3000}
SETTLE_MS=${BENCH_SETTLE_MS:-1500}   # a window unchanged this long has finished painting
TIMEOUT_S=60                          # per run; a viewer that never paints counts as "fail"
QUILLA="$BUILD/quilla"
MKSAMPLES="$BUILD/tools/mksamples/mksamples"
for exe in "$QUILLA" "$MKSAMPLES"; do
  if [ ! -x "$exe" ]; then
    echo "first_paint: $exe not found; build first (cmake --build $BUILD --target quilla mksamples)" >&2
    exit 1
  fi
done

have() { command -v "$1" >/dev/null 2>&1; }

WORK=$(mktemp -d "${TMPDIR:-/tmp}/quilla-paint.XXXXXX")
XVFB_PID=""
cleanup() {
  if [ -n "$XVFB_PID" ]; then
    kill "$XVFB_PID" 2>/dev/null
    wait "$XVFB_PID" 2>/dev/null
  fi
  rm -rf "$WORK"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

# Optional step: feh and xloadimage (Debian packages not every machine has)
# and GNU time for the memory figures.  Nothing else is installed here.
if [ "${BENCH_INSTALL:-1}" = 1 ] && have apt-get; then
  missing=()
  have feh || missing+=(feh)
  have xloadimage || missing+=(xloadimage)
  [ -x /usr/bin/time ] || missing+=(time)
  if [ ${#missing[@]} -gt 0 ]; then
    SUDO=""
    [ "$(id -u)" -eq 0 ] || SUDO="sudo -n"
    echo "first_paint: installing ${missing[*]}"
    if ! { DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null 2>&1 ||
      { $SUDO apt-get update -qq >/dev/null 2>&1 &&
        DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null 2>&1; }; }; then
      echo "first_paint: could not install ${missing[*]}; going on without" >&2
    fi
  fi
fi

# Our own X server unless one is given.
if [ -z "${DISPLAY:-}" ]; then
  if ! have Xvfb; then
    echo "first_paint: DISPLAY is not set and Xvfb is not installed" >&2
    exit 1
  fi
  # The first display number from 90 up that has no lock file and that the
  # server accepts (another one may take a number between check and start).
  for ((n = 90; n < 200; ++n)); do
    [ -e "/tmp/.X$n-lock" ] || [ -e "/tmp/.X11-unix/X$n" ] && continue
    Xvfb ":$n" -screen 0 1280x1024x24 -noreset -nolisten tcp >/dev/null 2>&1 &
    XVFB_PID=$!
    for ((i = 0; i < 50; ++i)); do
      xdpyinfo -display ":$n" >/dev/null 2>&1 && break
      kill -0 "$XVFB_PID" 2>/dev/null || break
      sleep 0.1
    done
    if xdpyinfo -display ":$n" >/dev/null 2>&1; then
      export DISPLAY=":$n"
      break
    fi
    kill "$XVFB_PID" 2>/dev/null
    wait "$XVFB_PID" 2>/dev/null
    XVFB_PID=""
  done
  if [ -z "$XVFB_PID" ]; then
    echo "first_paint: could not start Xvfb" >&2
    exit 1
  fi
  echo "X server: own Xvfb on $DISPLAY"
else
  echo "X server: $DISPLAY"
fi
SCREEN=$(xdpyinfo 2>/dev/null | awk '/dimensions:/ { print $2; exit }')
SCREEN=${SCREEN:-1280x1024}
SCREEN_W=${SCREEN%x*}
SCREEN_H=${SCREEN#*x}

# The test pictures.  A name of our own so that the peers' window titles
# (which show it) cannot be mistaken for anything else on the display.
BIG="$WORK/qpaint-$$.jpg"
TINY="$WORK/qtiny-$$.jpg"
# The big one is photo-like (a plasma fractal, lightly blurred, quality 90),
# as bench/run.sh uses; mksamples' smooth scene when ImageMagick is missing.
if have convert && convert -seed 1 -size "$SIZE" plasma:fractal -blur 0x1 -quality 90 "$BIG" 2>/dev/null; then
  ORIGIN="ImageMagick's plasma fractal"
else
  ORIGIN="mksamples"
  "$MKSAMPLES" -scene "$SIZE" "$BIG" >/dev/null 2>&1
fi
if [ ! -s "$BIG" ] || ! "$MKSAMPLES" -scene 16x16 "$TINY" >/dev/null 2>&1; then
  echo "first_paint: could not write the test pictures" >&2
  exit 1
fi
PIC_W=${SIZE%x*}
PIC_H=${SIZE#*x}
echo "test picture: $SIZE JPEG from $ORIGIN ($(wc -c <"$BIG") bytes), screen $SCREEN"

# A settings file of our own, emptied before every run: $HOME is never
# touched and every run starts from the default settings (View.Fit 1).
RC="$WORK/quilla.rc"

# The watcher for viewers that have no exit-after-paint switch: it starts the
# command, finds the new top-level window whose title contains TITLE, and
# samples 24 full-width rows of it every 2 ms.  The first-paint time is the
# time of the first sample that already showed the content the window then
# keeps for SETTLE_MS.  With an empty TITLE it only times the command from
# fork to exit.  Prints "SECONDS PEAK_RSS_KB" or "fail REASON".
cat >"$WORK/firstpaint.c" <<'EOF'
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

enum { kRows = 24, kMaxOld = 4096 };

static Window old_windows[kMaxOld];
static int n_old;

static pid_t child_pid;
static void KillChild(int sig) { (void)sig; kill(child_pid, SIGKILL); }

static int IgnoreError(Display *d, XErrorEvent *e) { (void)d; (void)e; return 0; }

static double Now(void) {
  struct timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return ts.tv_sec + ts.tv_nsec / 1e9;
}

static int IsOld(Window w) {
  for (int i = 0; i < n_old; ++i)
    if (old_windows[i] == w) return 1;
  return 0;
}

/* With record set, notes every window down to `depth` levels (the ones there
   before the viewer started); otherwise returns a new viewable window whose
   name contains `title`.  Two levels: a window manager puts clients in frames. */
static Window Find(Display *dpy, Window parent, const char *title, int depth, int record) {
  Window root, up, *kids = NULL, found = 0;
  unsigned n = 0;
  if (!XQueryTree(dpy, parent, &root, &up, &kids, &n)) return 0;
  for (unsigned i = 0; i < n && !found; ++i) {
    const Window w = kids[i];
    if (record) {
      if (n_old < kMaxOld) old_windows[n_old++] = w;
    } else if (!IsOld(w)) {
      char *name = NULL;
      XWindowAttributes a;
      if (XFetchName(dpy, w, &name) && name) {
        if (strstr(name, title) && XGetWindowAttributes(dpy, w, &a) && a.map_state == IsViewable) found = w;
        XFree(name);
      }
    }
    if (!found && depth > 0) found = Find(dpy, w, title, depth - 1, record);
  }
  if (kids) XFree(kids);
  return found;
}

/* Hash of kRows rows spread over the on-screen part of the window; *uniform
   tells whether every sampled pixel had the same value.  0: not readable. */
static int Sample(Display *dpy, Window w, uint64_t *hash, int *uniform) {
  XWindowAttributes a;
  Window child;
  int rx, ry;
  if (!XGetWindowAttributes(dpy, w, &a) || a.map_state != IsViewable) return 0;
  if (!XTranslateCoordinates(dpy, w, a.root, 0, 0, &rx, &ry, &child)) return 0;
  const int sw = WidthOfScreen(a.screen), sh = HeightOfScreen(a.screen);
  const int x0 = rx < 0 ? -rx : 0, y0 = ry < 0 ? -ry : 0;
  int x1 = a.width, y1 = a.height;
  if (rx + x1 > sw) x1 = sw - rx;
  if (ry + y1 > sh) y1 = sh - ry;
  if (x1 <= x0 || y1 <= y0) return 0;
  uint64_t h = 1469598103934665603ull;
  unsigned long first = 0;
  int same = 1, have_first = 0;
  for (int i = 0; i < kRows; ++i) {
    const int y = y0 + (int)((long)(y1 - y0) * (2 * i + 1) / (2 * kRows));
    XImage *im = XGetImage(dpy, w, x0, y, (unsigned)(x1 - x0), 1, AllPlanes, ZPixmap);
    if (!im) return 0;
    for (int x = 0; x < x1 - x0; ++x) {
      const unsigned long p = XGetPixel(im, x, 0);
      h = (h ^ p) * 1099511628211ull;
      if (!have_first) first = p, have_first = 1;
      else if (p != first) same = 0;
    }
    XDestroyImage(im);
  }
  *hash = h ^ ((uint64_t)a.width << 32) ^ (uint64_t)a.height;
  *uniform = same;
  return 1;
}

int main(int argc, char **argv) {
  if (argc < 5) {
    fprintf(stderr, "usage: firstpaint TITLE SETTLE_MS TIMEOUT_MS COMMAND [ARG...]\n");
    return 2;
  }
  const char *title = argv[1];
  const double settle = atoi(argv[2]) / 1000.0, timeout = atoi(argv[3]) / 1000.0;
  Display *dpy = XOpenDisplay(NULL);
  if (!dpy) {
    printf("fail no-display\n");
    return 1;
  }
  XSetErrorHandler(IgnoreError);
  const Window root = DefaultRootWindow(dpy);
  Find(dpy, root, title, 2, 1);

  const double t0 = Now();
  pid_t pid = fork();
  if (pid < 0) {
    printf("fail fork\n");
    return 1;
  }
  if (pid == 0) {
    const int fd = open("/dev/null", O_RDWR);
    if (fd >= 0) dup2(fd, 0), dup2(fd, 1), dup2(fd, 2);
    execvp(argv[4], argv + 4);
    _exit(127);
  }
  struct rusage ru;
  memset(&ru, 0, sizeof ru);
  int status = 0, have = 0, uniform = 1;
  if (!*title) { /* no window to watch: the time until the command exits */
    child_pid = pid;
    signal(SIGALRM, KillChild);
    alarm((unsigned)(timeout + 1));
    while (wait4(pid, &status, 0, &ru) < 0)
      if (errno != EINTR) {
        printf("fail wait\n");
        return 1;
      }
    const double t = Now() - t0;
    XCloseDisplay(dpy);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
      printf("fail exit-status\n");
      return 1;
    }
    printf("%.4f %ld\n", t, ru.ru_maxrss);
    return 0;
  }
  uint64_t last = 0;
  double changed = 0;
  const char *failure = NULL;
  Window win = 0;
  for (;;) {
    const double t = Now() - t0;
    if (wait4(pid, &status, WNOHANG, &ru) == pid) {
      pid = 0;
      failure = "exited";
      break;
    }
    if (t > timeout) {
      failure = "timeout";
      break;
    }
    if (!win) win = Find(dpy, root, title, 2, 0);
    if (win) {
      uint64_t h;
      int u;
      if (!Sample(dpy, win, &h, &u)) {
        win = 0; /* unmapped or gone: look for the window again */
        have = 0;
      } else if (!have || h != last) {
        last = h;
        have = 1;
        changed = t;
        uniform = u;
      } else if (t - changed >= settle) {
        if (uniform) failure = "blank-window";
        break;
      }
    }
    usleep(2000);
  }
  if (pid > 0) {
    kill(pid, SIGTERM);
    int gone = 0;
    for (int i = 0; i < 200 && !gone; ++i) {
      if (wait4(pid, &status, WNOHANG, &ru) == pid) gone = 1;
      else usleep(10000);
    }
    if (!gone) {
      kill(pid, SIGKILL);
      wait4(pid, &status, 0, &ru);
    }
  }
  XCloseDisplay(dpy);
  if (failure) {
    printf("fail %s\n", failure);
    return 1;
  }
  printf("%.3f %ld\n", changed, ru.ru_maxrss);
  return 0;
}
EOF
WATCH="$WORK/firstpaint"
if ! cc -O2 -std=c99 -D_GNU_SOURCE -o "$WATCH" "$WORK/firstpaint.c" -lX11 2>"$WORK/cc.log"; then
  echo "first_paint: cannot build the window watcher (needs cc and libx11-dev); peers skipped" >&2
  WATCH=""
fi

# best_time CMD...: best wall time in seconds of RUNS runs, or "fail".  The
# settings file is emptied before each run.  hyperfine when installed, else
# the watcher's exit mode (fork to exit, no shell in between), else a shell
# loop around $EPOCHREALTIME.
best_time() {
  if have hyperfine; then
    local csv="$WORK/hf.csv"
    if hyperfine --runs "$RUNS" --style none --prepare ": > $(printf '%q' "$RC")" --export-csv "$csv" \
      -- "$(printf '%q ' timeout "$TIMEOUT_S" "$@")" >/dev/null 2>&1; then
      awk -F, 'NR == 2 { printf "%.3f", $7 }' "$csv"
      return
    fi
    printf 'fail'
    return
  fi
  local best="" t0 t1 d out kb
  for ((i = 0; i < RUNS; ++i)); do
    : >"$RC"
    if [ -n "$WATCH" ]; then
      out=$("$WATCH" "" 0 "$((TIMEOUT_S * 1000))" "$@")
      read -r d kb <<<"$out"
      if [ "$d" = fail ]; then printf 'fail'; return; fi
    else
      t0=$EPOCHREALTIME
      if ! timeout "$TIMEOUT_S" "$@" >/dev/null 2>&1; then printf 'fail'; return; fi
      t1=$EPOCHREALTIME
      d=$(echo "$t1 - $t0" | bc -l)
    fi
    if [ -z "$best" ] || [ "$(echo "$d < $best" | bc -l)" = 1 ]; then best=$d; fi
  done
  printf '%.3f' "$best"
}

# watched_once TITLE CMD...: "SECONDS PEAK_KB" of one watched run, "fail(WHY)
# -" when it fails, "- -" without the watcher or the command.
watched_once() {
  local title=$1
  shift
  if [ -z "$WATCH" ] || ! have "$1"; then printf -- '- -'; return; fi
  local out t kb
  : >"$RC"
  out=$("$WATCH" "$title" "$SETTLE_MS" "$((TIMEOUT_S * 1000))" "$@")
  read -r t kb <<<"$out"
  if [ "$t" = fail ]; then printf 'fail(%s) -' "$kb"; return; fi
  printf '%s %s' "$t" "$kb"
}

# median_pair "T KB" ...: the pair with the median time; the first failure
# or "-" when any run did not give a time.
median_pair() {
  local p
  for p in "$@"; do
    [[ ${p%% *} =~ ^[0-9.]+$ ]] || { printf '%s' "$p"; return; }
  done
  printf '%s\n' "$@" | sort -n | awk '{ v[NR] = $0 } END { printf "%s", v[int((NR + 1) / 2)] }'
}

# median_rss CMD...: median peak RSS in KiB (GNU time %M) of RUNS runs.
median_rss() {
  if [ ! -x /usr/bin/time ]; then printf -- '-'; return; fi
  local values=()
  for ((i = 0; i < RUNS; ++i)); do
    : >"$RC"
    if ! timeout "$TIMEOUT_S" /usr/bin/time -f %M -o "$WORK/rss" "$@" >/dev/null 2>&1; then printf 'fail'; return; fi
    values+=("$(tail -n 1 "$WORK/rss")")
  done
  printf '%s\n' "${values[@]}" | sort -n | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'
}

ratio() { # ratio A B: A/B with two decimals, "-" when either is not a number
  if [[ $1 =~ ^[0-9.]+$ && $2 =~ ^[0-9.]+$ ]] && [ "$(echo "$2 > 0" | bc -l)" = 1 ]; then
    printf '%.2f' "$(echo "$1 / $2" | bc -l)"
  else
    printf -- '-'
  fi
}

QCMD=(env QUILLA_EXIT_AFTER_PAINT=1 "$QUILLA" -ini "$RC")
FIT="${SCREEN_W}x${SCREEN_H}>"   # the peers shrink the picture to the screen, as View.Fit 1 does

t_quilla=$(best_time "${QCMD[@]}" "$BIG")
t_tiny=$(best_time "${QCMD[@]}" "$TINY")
t_djpeg="-"
have djpeg && t_djpeg=$(best_time djpeg -outfile /dev/null "$BIG")
# The watched viewers run one after the other in each of RUNS rounds, so
# that a busy machine slows them alike; each one's figure is its median run.
# feh -g and xloadimage are the two commands of the first-paint target: feh
# in a 1600x1000 window and xloadimage at 40% (both fit a 4000x3000 picture
# to a 1920x1080 screen).
TITLE=$(basename "$BIG")
r_quilla=() r_display=() r_feh=() r_fehg=() r_xli=()
for ((round = 0; round < RUNS; ++round)); do
  r_quilla+=("$(watched_once "Quilla" env -u QUILLA_EXIT_AFTER_PAINT "$QUILLA" -ini "$RC" "$BIG")")
  r_display+=("$(watched_once "$TITLE" display -geometry +0+0 -resize "$FIT" "$BIG")")
  r_feh+=("$(watched_once "$TITLE" feh --scale-down --geometry +0+0 "$BIG")")
  r_fehg+=("$(watched_once "$TITLE" feh -g 1600x1000 "$BIG")")
  r_xli+=("$(watched_once "$TITLE" xloadimage -zoom 40 "$BIG")")
done
read -r w_quilla k_quilla <<<"$(median_pair "${r_quilla[@]}")"
read -r w_display k_display <<<"$(median_pair "${r_display[@]}")"
read -r w_feh k_feh <<<"$(median_pair "${r_feh[@]}")"
read -r w_fehg k_fehg <<<"$(median_pair "${r_fehg[@]}")"
read -r w_xli k_xli <<<"$(median_pair "${r_xli[@]}")"

echo
echo "first paint of the $SIZE JPEG, seconds from start: best of $RUNS runs for the first three rows,"
echo "median of $RUNS interleaved rounds for the watched windows"
printf '%-44s %9s %12s\n' "command" "time (s)" "peak RSS KiB"
printf '%-44s %9s %12s\n' "-------" "--------" "------------"
printf '%-44s %9s %12s\n' "quilla (QUILLA_EXIT_AFTER_PAINT)" "$t_quilla" ""
printf '%-44s %9s %12s\n' "quilla, 16x16 picture (start-up alone)" "$t_tiny" ""
printf '%-44s %9s %12s\n' "djpeg -outfile /dev/null (decode only)" "$t_djpeg" ""
printf '%-44s %9s %12s\n' "quilla, watched window" "$w_quilla" "$k_quilla"
printf '%-44s %9s %12s\n' "display -resize $FIT, watched window" "$w_display" "$k_display"
printf '%-44s %9s %12s\n' "feh --scale-down, watched window" "$w_feh" "$k_feh"
printf '%-44s %9s %12s\n' "feh -g 1600x1000, watched window" "$w_fehg" "$k_fehg"
printf '%-44s %9s %12s\n' "xloadimage -zoom 40, watched window" "$w_xli" "$k_xli"
echo
echo "quilla first paint / djpeg decode: $(ratio "$t_quilla" "$t_djpeg") (target 1.2 or less)"
fastest=""
for t in "$w_fehg" "$w_xli"; do
  [[ $t =~ ^[0-9.]+$ ]] || continue
  if [ -z "$fastest" ] || [ "$(echo "$t < $fastest" | bc -l)" = 1 ]; then fastest=$t; fi
done
echo "quilla watched / faster of feh -g and xloadimage: $(ratio "$w_quilla" "$fastest") (target 1.0, aim 0.7)"
echo "quilla watched / feh -g: $(ratio "$w_quilla" "$w_fehg"), / xloadimage: $(ratio "$w_quilla" "$w_xli")"
if [ "${BENCH_VERBOSE:-0}" = 1 ]; then
  echo "every watched run (seconds, peak KiB):"
  for n in quilla display feh fehg xli; do
    eval 'printf "  %-8s %s\n" '"$n"' "${r_'"$n"'[*]}"'
  done
fi

# Memory with the full picture in: QUILLA_EXIT_AFTER_PAINT=full waits until
# the full decode that follows the reduced first paint of a large JPEG
# (in the background, on a worker thread) has taken the reduced one's place.
QCMD_FULL=(env QUILLA_EXIT_AFTER_PAINT=full "$QUILLA" -ini "$RC")
t_full=$(best_time "${QCMD_FULL[@]}" "$BIG")
echo "quilla, full picture decoded in the background and in place: $t_full s"
m_big=$(median_rss "${QCMD_FULL[@]}" "$BIG")
m_tiny=$(median_rss "${QCMD_FULL[@]}" "$TINY")
PIC_BYTES=$((PIC_W * PIC_H * 3 + 256 * 256 * 4))
echo
echo "peak RSS of quilla with the full picture in (GNU time %M), median of $RUNS runs"
printf '%-44s %12s\n' "$SIZE picture (KiB)" "$m_big"
printf '%-44s %12s\n' "16x16 picture, fixed cost (KiB)" "$m_tiny"
printf '%-44s %12s\n' "picture RGB + one 256x256 tile (KiB)" "$(echo "scale=0; $PIC_BYTES / 1024" | bc)"
m_ratio="-"
if [[ $m_big =~ ^[0-9]+$ && $m_tiny =~ ^[0-9]+$ ]]; then
  m_ratio=$(printf '%.3f' "$(echo "($m_big - $m_tiny) * 1024 / $PIC_BYTES" | bc -l)")
fi
echo "(peak - fixed cost) / (picture + tile): $m_ratio (target 1.1 or less)"
