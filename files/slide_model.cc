// Slide files and the order of the show.
#include "files/slide_model.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

#include "core/atomic_write.h"

namespace quilla {

namespace {

constexpr size_t kMaxPath = 4095;
const char kHeader[] = "# Slide Show Sequence";

void Line(std::string *out, const char *name, long value, bool hex = false) {
  char buf[64];
  std::snprintf(buf, sizeof buf, hex ? "%s = %lx\n" : "%s = %ld\n", name, value);
  *out += buf;
}

// One switch line: "%32s = %d" and the effect of its name.
void ApplySwitchLine(const std::string &line, SlideList *list) {
  char name[33];
  int value = 0;
  if (std::sscanf(line.c_str(), "%32s = %d", name, &value) != 2) return;
  unsigned &s = list->switches;
  if (std::strcmp(name, "Timer") == 0) {
    s |= kSlideTimer;
    list->timer = value;
  } else if (std::strcmp(name, "Loop") == 0) {
    if (value) s |= kSlideLoop;
  } else if (std::strcmp(name, "FullScreen") == 0) {
    if (value) s |= kSlideFull;
  } else if (std::strcmp(name, "TitleBar") == 0) {
    if (value) s &= ~kSlideNoTitle;
  } else if (std::strcmp(name, "View") == 0) {
    if (value == 1) s |= kSlideView1;
    if (value == 2) s |= kSlideView2;
  } else if (std::strcmp(name, "CenterWindow") == 0) {
    if (value) s |= kSlideCenter;
  } else if (std::strcmp(name, "ReadErrors") == 0) {
    if (value) s &= ~kSlideNoErrors;
  } else if (std::strcmp(name, "HideMouse") == 0) {
    if (value) s |= kSlideHideMouse;
  } else if (std::strcmp(name, "RandomOrder") == 0) {
    if (value) s |= kSlideRandom;
  }
}

// The path of an entry line (which starts with a double quote): up to the
// last double quote after the first, else the rest of the line.
std::string EntryPath(const std::string &line) {
  const size_t close = line.rfind('"');
  std::string path = close != std::string::npos && close >= 1 ? line.substr(1, close - 1) : line.substr(1);
  if (path.size() > kMaxPath) path.resize(kMaxPath);
  return path;
}

}  // namespace

std::string SlideFileText(const SlideList &list) {
  const unsigned s = list.switches;
  std::string out = std::string(kHeader) + "\n";
  if (s & kSlideTimer) Line(&out, "Timer", list.timer);
  Line(&out, "Loop", (s & kSlideLoop) ? 1 : 0);
  Line(&out, "FullScreen", (s & kSlideFull) ? 1 : 0);
  Line(&out, "TitleBar", (s & kSlideNoTitle) ? 0 : 1);
  Line(&out, "View", (s & kSlideView1) ? 1 : (s & kSlideView2) ? 2 : 0);
  Line(&out, "CenterWindow", (s & kSlideCenter) ? 1 : 0);
  Line(&out, "ReadErrors", (s & kSlideNoErrors) ? 0 : 1);
  Line(&out, "HideMouse", (s & kSlideHideMouse) ? 1 : 0);
  Line(&out, "RandomOrder", (s & kSlideRandom) ? 1 : 0);
  Line(&out, "ShowFilename", list.show_filename ? 1 : 0);
  Line(&out, "BackgroundColor", static_cast<long>(list.background), true);
  for (const std::string &e : list.entries) out += "\"" + e + "\"\n";
  return out;
}

bool WriteSlideFile(const std::string &path, const SlideList &list) {
  if (list.entries.empty()) return true;
  return WriteFileAtomically(path, SlideFileText(list));
}

SlideList ParseSlideText(const std::string &text) {
  SlideList list;
  std::istringstream in(text);
  std::string line;
  bool first = true;
  while (std::getline(in, line)) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (first) {
      // The first line is looked at through a 512-byte buffer.
      if (line.substr(0, 511).find(kHeader) == std::string::npos) return SlideList();
      first = false;
      continue;
    }
    if (line.empty()) continue;
    if (line[0] == '"') list.entries.push_back(EntryPath(line));
    else ApplySwitchLine(line, &list);
  }
  if (list.timer <= 0) list.timer = 1;
  return list;
}

bool ReadSlideFile(const std::string &path, SlideList *list) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return false;
  std::ostringstream text;
  text << in.rdbuf();
  *list = ParseSlideText(text.str());
  return true;
}

std::string CantOpenSlideText(const std::string &path) { return "Can't open file : " + path; }

std::string WithSlideExtension(const std::string &path) {
  if (path.size() >= 4 && path.compare(path.size() - 4, 4, ".sld") == 0) return path;
  return path + ".sld";
}

SlideOrder::SlideOrder(size_t count, unsigned switches, std::function<int()> random)
    : count_(count), switches_(switches), random_(std::move(random)) {
  if (!random_) random_ = [] { return std::rand(); };
  if (switches_ & kSlideRandom) seen_.assign(count_, 0);
}

int SlideOrder::Step(int direction) {
  if (count_ == 0) return -1;
  index_ += direction < 0 ? -1 : 1;
  if (index_ < 0 || index_ >= static_cast<int>(count_)) {
    if (!(switches_ & kSlideLoop)) return -1;
    index_ = index_ < 0 ? static_cast<int>(count_) - 1 : 0;
    std::fill(seen_.begin(), seen_.end(), 0);
  }
  if (!(switches_ & kSlideRandom)) return index_;
  // The first unseen entry from a random start, wrapping once; when every
  // entry was seen the marks are cleared and the first one is taken.
  const size_t r = static_cast<size_t>(random_()) % count_;
  size_t chosen = count_;
  for (size_t i = r; i < count_ && chosen == count_; ++i)
    if (!seen_[i]) chosen = i;
  for (size_t i = 0; i < r && chosen == count_; ++i)
    if (!seen_[i]) chosen = i;
  if (chosen == count_) {
    std::fill(seen_.begin(), seen_.end(), 0);
    chosen = 0;
  }
  seen_[chosen] = 1;
  return static_cast<int>(chosen);
}

SlidePlacement PlaceSlide(unsigned switches, int width, int height, int screen_width, int screen_height) {
  SlidePlacement p;
  if ((switches & kSlideFull) || width >= screen_width || height >= screen_height) return p;
  p.resize = true;
  p.width = width;
  p.height = height;
  if (switches & kSlideCenter) {
    p.move = true;
    p.x = (screen_width - width) / 2;
    p.y = (screen_height - height) / 2;
  }
  return p;
}

SlideAction ActionForInput(SlideInput input, unsigned switches, int *direction) {
  *direction = 0;
  switch (input) {
    case SlideInput::kRight: *direction = 1; return SlideAction::kStep;
    case SlideInput::kLeft: *direction = -1; return SlideAction::kStep;
    case SlideInput::kSpace: return (switches & kSlideTimer) ? SlideAction::kPauseOrResume : SlideAction::kNone;
    case SlideInput::kEscape: return SlideAction::kEnd;
    case SlideInput::kOtherKey: return SlideAction::kStep;
    case SlideInput::kButton1: *direction = -1; return SlideAction::kStep;  // back, on purpose
    case SlideInput::kButton3: *direction = 1; return SlideAction::kStep;
    case SlideInput::kOtherButton: return SlideAction::kNone;
  }
  return SlideAction::kNone;
}

}  // namespace quilla
