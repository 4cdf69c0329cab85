// The toolkit-free half of the slide show: the slide file (".sld") reader and
// writer, the order of the show (Step with loop and random order), the
// window placement and what each key or button does.
#ifndef QUILLA_FILES_SLIDE_MODEL_H
#define QUILLA_FILES_SLIDE_MODEL_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace quilla {

// Switch word bits.
constexpr unsigned kSlideTimer = 1, kSlideLoop = 2, kSlideFull = 4, kSlideView1 = 8, kSlideView2 = 16,
                   kSlideCenter = 32, kSlideNoTitle = 64, kSlideNoErrors = 128, kSlideHideMouse = 256,
                   kSlideRandom = 512;

// What a slide file holds.  The reader starts from switches 192 (no title
// bar, no read-error reports), no entries and a 1-second timer.
struct SlideList {
  unsigned switches = kSlideNoTitle | kSlideNoErrors;
  int timer = 1;              // seconds
  bool show_filename = false;  // written, not read back
  uint32_t background = 0;     // written, not read back
  std::vector<std::string> entries;

  // The interval of the show; a timer of 0 or less is one second.
  int IntervalMs() const { return (timer > 0 ? timer : 1) * 1000; }
};

// The file's text, as the writer lays it out.
std::string SlideFileText(const SlideList &list);

// Writes `path` whole (through a temporary file).  Writes nothing, creates
// no file and returns true when the list is empty; false when the file
// cannot be written.
bool WriteSlideFile(const std::string &path, const SlideList &list);

// Reads `path`; false (list untouched) when it cannot be opened.  A file
// whose first line lacks "# Slide Show Sequence" gives the reader's empty
// defaults and true.
bool ReadSlideFile(const std::string &path, SlideList *list);
// The same on the file's text.
SlideList ParseSlideText(const std::string &text);

// "Can't open file : <path>"
std::string CantOpenSlideText(const std::string &path);

// "<path>" with ".sld" appended when it does not end with it.
std::string WithSlideExtension(const std::string &path);

// The order of a running show.
class SlideOrder {
 public:
  // `random` draws the next random number (rand() by default).
  SlideOrder(size_t count, unsigned switches, std::function<int()> random = nullptr);

  // The entry to show after moving in `direction` (negative: back, zero or
  // positive: forward), or -1 when the show ends.  The first call, with
  // direction +1, gives the first entry.
  int Step(int direction);

  int index() const { return index_; }
  // Whether entry i was shown since the marks were last cleared (random order).
  bool seen(size_t i) const { return i < seen_.size() && seen_[i]; }

 private:
  size_t count_;
  unsigned switches_;
  std::function<int()> random_;
  int index_ = -1;
  std::vector<uint8_t> seen_;
};

// Where the slide window goes for a picture: outside full screen, a
// picture smaller than the screen both ways sizes the window to it and,
// with kSlideCenter, centres it.
struct SlidePlacement {
  bool resize = false, move = false;
  int x = 0, y = 0, width = 0, height = 0;
};
SlidePlacement PlaceSlide(unsigned switches, int width, int height, int screen_width, int screen_height);

// Input in the slide view.
enum class SlideInput { kRight, kLeft, kSpace, kEscape, kOtherKey, kButton1, kButton3, kOtherButton };
enum class SlideAction { kStep, kPauseOrResume, kEnd, kNone };
// The action and, for kStep, the direction.
SlideAction ActionForInput(SlideInput input, unsigned switches, int *direction);

}  // namespace quilla

#endif
