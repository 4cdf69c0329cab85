// The view's picture operations without a display: menus, panels,
// remembered values, selection and auto crop.
#include "view/op_model.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace quilla {

const char *const kOpTopMenuNames[3] = {"Image", "Filter", "Effects"};

const OpSubmenuDesc kOpSubmenus[kOpSubmenuCount] = {
    {"MenuColors", "Colors", kTopImage},  {"MenuGrey", "Greyscale", kTopImage},
    {"MenuBinary", "Binary", kTopImage},  {"MenuAdjust", "Adjust", kTopImage},
    {"MenuFlip", "Flip", kTopImage},      {"MenuRotate", "Rotate", kTopImage},
    {"MenuBlur", "Blur", kTopFilter},     {"MenuEnhance", "Enhance", kTopFilter},
    {"MenuEdge", "Edge", kTopFilter},     {"MenuNoise", "Noise", kTopFilter},
    {"MenuEffects", "Effects", kTopEffects},
};

namespace {

// Which submenu an option belongs to.  Rows of an option with sub-options
// all go to the same place.
struct Place {
  const char *option;
  int top, submenu;
};
const Place kPlaces[] = {
    {"-truecolors", kTopImage, kSubColors}, {"-colors", kTopImage, kSubColors},
    {"-grey", kTopImage, kSubGrey},         {"-binary", kTopImage, kSubBinary},
    {"-resize", kTopImage, kSubNone},       {"-crop", kTopImage, kSubNone},
    {"-canvas", kTopImage, kSubNone},       {"-dpi", kTopImage, kSubNone},
    {"-xflip", kTopImage, kSubFlip},        {"-yflip", kTopImage, kSubFlip},
    {"-rotate", kTopImage, kSubRotate},     {"-deinter", kTopImage, kSubNone},
    {"-negate", kTopImage, kSubAdjust},     {"-brightness", kTopImage, kSubAdjust},
    {"-contrast", kTopImage, kSubAdjust},   {"-gamma", kTopImage, kSubAdjust},
    {"-balance", kTopImage, kSubAdjust},    {"-log", kTopImage, kSubAdjust},
    {"-solarize", kTopImage, kSubAdjust},   {"-posterize", kTopImage, kSubAdjust},
    {"-normalize", kTopImage, kSubAdjust},  {"-equalize", kTopImage, kSubAdjust},
    {"-swap", kTopImage, kSubAdjust},       {"-average", kTopFilter, kSubBlur},
    {"-soften", kTopFilter, kSubBlur},      {"-blur", kTopFilter, kSubBlur},
    {"-gauss", kTopFilter, kSubBlur},       {"-edetail", kTopFilter, kSubEnhance},
    {"-efocus", kTopFilter, kSubEnhance},   {"-eedge", kTopFilter, kSubEnhance},
    {"-frestore", kTopFilter, kSubEnhance}, {"-sharpen", kTopFilter, kSubEnhance},
    {"-edgedetect", kTopFilter, kSubEdge},  {"-emboss", kTopFilter, kSubEdge},
    {"-embossmore", kTopFilter, kSubEdge},  {"-noise", kTopFilter, kSubNoise},
    {"-maximum", kTopFilter, kSubNoise},    {"-minimum", kTopFilter, kSubNoise},
    {"-medianb", kTopFilter, kSubNoise},    {"-medianc", kTopFilter, kSubNoise},
};

const OpEntry *Row(int row) {
  if (row < 0 || row >= OpCatalogueCount()) return nullptr;
  return &OpCatalogue()[row];
}

// The toggles of the colour and grey level choice, with the codes the
// operations read.  4 colours and 216 grey levels have no code.
const int kLevels[8] = {4, 8, 16, 32, 64, 128, 216, 256};
const int kColorCodes[8] = {-1, 12, 13, 14, 15, 16, 17, 18};
const int kGreyCodes[8] = {2, 3, 4, 5, 6, 7, -1, 9};
const char *const kBinaryLabels[4] = {"Dither", "Floyd Steindberg", "Half-Tone 45", "Half-Tone 90"};
const int kBinaryCodes[4] = {1, 5, 2, 3};
const char *const kSwapLabels[5] = {"RGB->RBG", "RGB->BGR", "RGB->BRG", "RGB->GRB", "RGB->GBR"};
const char *const kResampleLabels[4] = {"Bilinear", "Nearest", "Bicubic", "Lanczos"};

int IndexOf(const int *codes, int n, int code) {
  for (int k = 0; k < n; ++k)
    if (codes[k] == code) return k;
  return -1;
}

int Clamp(int v, int lo, int hi) { return std::min(std::max(v, lo), hi); }
int Hundredths(double r) { return static_cast<int>(std::lround(r * 100.0)); }

PanelNumber Number(const std::string &name, const std::string &label, int min, int max, int decimals = 0) {
  PanelNumber n;
  n.name = name;
  n.label = label;
  n.min = min;
  n.max = max;
  n.decimals = decimals;
  return n;
}

PanelToggle Toggle(const std::string &name, const std::string &label, bool sensitive = true) {
  return PanelToggle{name, label, sensitive};
}

// The size panel of Resize and Resize Canvas.
void SizePanel(OpPanel *p, bool resample) {
  p->size_panel = true;
  PanelGroup unit;
  unit.name = "frameSizeUnit";
  unit.toggles = {Toggle("toggleSizePixel", "Pixels"), Toggle("toggleSizePerc", "Percent")};
  p->groups.push_back(unit);
  p->fields = {Number("textSizeWidth", "Width", 1, 65535), Number("textSizeHeight", "Height", 1, 65535)};
  p->checks = {Toggle("toggleSizeRatio", "Keep ratio"), Toggle("toggleSizeDecr", "Only decrease"),
               Toggle("toggleSizeIncr", "Only increase")};
  if (resample) {
    PanelGroup g;
    g.name = "optionSizeResample";
    g.title = "Resample";
    g.option_menu = true;
    for (int k = 0; k < 4; ++k) g.toggles.push_back(Toggle("resample" + std::to_string(k + 1), kResampleLabels[k]));
    p->groups.push_back(g);
  }
}

}  // namespace

bool OpMenuPlace(int row, int *top, int *submenu) {
  const OpEntry *e = Row(row);
  if (!e) return false;
  for (const Place &pl : kPlaces)
    if (std::strcmp(pl.option, e->option) == 0) {
      *top = pl.top;
      *submenu = pl.submenu;
      return true;
    }
  // Any row not placed above is an effect.
  *top = kTopEffects;
  *submenu = kSubEffects;
  return true;
}

namespace {
// Widget name of a menu entry: "op" and the option's letters, the
// sub-option capitalised, the choice: "opNegate", "opNoiseGaussian", "opColors3".
std::string EntryName(int row, int choice) {
  const OpEntry &e = OpCatalogue()[row];
  std::string n = "op";
  auto add = [&](const char *word) {
    bool first = true;
    for (const char *c = word; *c; ++c) {
      if (*c == '-') continue;
      n += first ? static_cast<char>(std::toupper(static_cast<unsigned char>(*c))) : *c;
      first = false;
    }
  };
  add(e.option);
  if (e.sub_option) add(e.sub_option);
  if (choice >= 0) n += std::to_string(choice);
  return n;
}
}  // namespace

std::string OpCommandWord(int row, int choice) {
  const OpEntry *e = Row(row);
  if (!e) return "";
  std::string w = std::string("op") + e->option;
  if (e->sub_option) w += std::string("/") + e->sub_option;
  if (choice >= 0) w += "=" + std::to_string(choice);
  return w;
}

bool OpParseCommandWord(const char *word, int *row, int *choice) {
  if (!word || std::strncmp(word, "op-", 3) != 0) return false;
  std::string w = word + 2;
  int c = -1;
  const size_t eq = w.find('=');
  if (eq != std::string::npos) {
    const std::string num = w.substr(eq + 1);
    if (num.empty() || num.find_first_not_of("0123456789") != std::string::npos || num.size() > 3) return false;
    c = std::atoi(num.c_str());
    w.erase(eq);
  }
  std::string sub;
  const size_t slash = w.find('/');
  if (slash != std::string::npos) {
    sub = w.substr(slash + 1);
    w.erase(slash);
  }
  const int r = OpCatalogueFind(w.c_str(), sub.empty() ? nullptr : sub.c_str());
  if (r < 0) return false;
  // A row without sub-option found for a word that named one is no match.
  if (!sub.empty() && !OpCatalogue()[r].sub_option) return false;
  if (c >= 0) {
    const OpPanel panel = OpPanelFor(r);
    if (panel.groups.empty() || c >= static_cast<int>(panel.groups[0].toggles.size()) ||
        !panel.groups[0].toggles[c].sensitive)
      return false;
  }
  *row = r;
  *choice = c;
  return true;
}

std::vector<OpMenuItem> OpMenuItems(int top, int submenu) {
  std::vector<OpMenuItem> items;
  for (int row = 0; row < OpCatalogueCount(); ++row) {
    int t, s;
    if (!OpMenuPlace(row, &t, &s) || t != top || s != submenu) continue;
    const OpEntry &e = OpCatalogue()[row];
    const bool choices = e.kind == kKindColors || e.kind == kKindGrey || e.kind == kKindBinary;
    if (choices) {
      const OpPanel panel = OpPanelFor(row);
      const PanelGroup &g = panel.groups[0];
      for (int c = 0; c < static_cast<int>(g.toggles.size()); ++c) {
        if (!g.toggles[c].sensitive) continue;
        OpMenuItem item;
        item.row = row;
        item.choice = c;
        item.word = OpCommandWord(row, c);
        if (e.kind == kKindBinary) {
          item.label = g.toggles[c].label;
        } else {
          item.label = std::to_string(kLevels[c]) + (e.kind == kKindGrey ? " Grey Levels" : " Colors");
        }
        item.name = EntryName(row, c);
        items.push_back(item);
      }
      continue;
    }
    OpMenuItem item;
    item.row = row;
    item.word = OpCommandWord(row);
    item.name = EntryName(row, -1);
    item.label = e.name;
    if (e.kind == kKindTrueColor) item.label = "True Colors";
    if (OpHasParameters(row)) item.label += "...";
    items.push_back(item);
  }
  return items;
}

// ---- panels --------------------------------------------------------------------------

bool OpHasParameters(int row) {
  const OpEntry *e = Row(row);
  return e && e->kind != kKindNone && e->kind != kKindTrueColor;
}

OpPanel OpPanelFor(int row) {
  OpPanel p;
  const OpEntry *e = Row(row);
  if (!e) return p;
  p.row = row;
  p.kind = e->kind;
  switch (e->kind) {
    case kKindInt:
      p.sliders.push_back(Number("textValue0", e->name, e->desc[0].min, e->desc[0].max));
      break;
    case kKindAngle:
      p.sliders.push_back(Number("textValue0", "Angle", e->desc[0].min, e->desc[0].max));
      break;
    case kKindPosterize:
      p.sliders.push_back(Number("textValue0", "Levels", 2, 256));
      break;
    case kKindReal:
      p.sliders.push_back(Number("textValue0", e->name, e->desc[0].min, e->desc[0].max, 2));
      break;
    case kKindReal3:
    case kKindInt3:
      for (int k = 0; k < 3; ++k)
        p.sliders.push_back(Number("textValue" + std::to_string(k), e->desc[k].label, e->desc[k].min, e->desc[k].max,
                                   e->kind == kKindReal3 ? 2 : 0));
      break;
    case kKindResize:
      SizePanel(&p, true);
      break;
    case kKindCanvas:
      SizePanel(&p, false);
      break;
    case kKindCrop:
      p.fields = {Number("textX", "X", 0, 65535), Number("textY", "Y", 0, 65535),
                  Number("textWidth", "Width", 1, 65535), Number("textHeight", "Height", 1, 65535)};
      break;
    case kKindDpi:
      p.fields = {Number("textDpiX", "Horizontal DPI", 1, 65535), Number("textDpiY", "Vertical DPI", 1, 65535)};
      break;
    case kKindColors:
    case kKindGrey: {
      PanelGroup g;
      g.name = "frameLevel";
      g.title = e->kind == kKindGrey ? "Grey Levels" : "Colors";
      const int *codes = e->kind == kKindGrey ? kGreyCodes : kColorCodes;
      for (int k = 0; k < 8; ++k)
        g.toggles.push_back(Toggle("toggleLevel" + std::to_string(kLevels[k]), std::to_string(kLevels[k]), codes[k] >= 0));
      p.groups.push_back(g);
      p.checks.push_back(Toggle("toggleLevelDithered", "Dithered"));
      break;
    }
    case kKindBinary: {
      PanelGroup g;
      g.name = "frameMethod";
      g.title = "Method";
      for (int k = 0; k < 4; ++k) g.toggles.push_back(Toggle("toggleMethod" + std::to_string(k), kBinaryLabels[k]));
      p.groups.push_back(g);
      break;
    }
    case kKindFilterSize: {
      PanelGroup g;
      g.name = "frameFilterSize";
      g.title = "Filter size";
      for (int n = 3; n <= 13; n += 2) {
        char label[16];
        std::snprintf(label, sizeof label, "%dx%d", n, n);
        g.toggles.push_back(Toggle("toggleFilter" + std::to_string(n), label));
      }
      p.groups.push_back(g);
      break;
    }
    case kKindSwap: {
      PanelGroup g;
      g.name = "frameSwap";
      g.title = "Components";
      for (int k = 0; k < 5; ++k) g.toggles.push_back(Toggle("toggleSwap" + std::to_string(k), kSwapLabels[k]));
      p.groups.push_back(g);
      break;
    }
    case kKindDeinterlace: {
      PanelGroup a, b;
      a.name = "frameEliminate";
      a.title = "Eliminate";
      a.toggles = {Toggle("toggleOdd", "Odd Fields"), Toggle("toggleEven", "Even Fields")};
      b.name = "frameNewFields";
      b.title = "New Fields";
      b.toggles = {Toggle("toggleDuplication", "Duplication"), Toggle("toggleInterpolation", "Interpolation")};
      p.groups = {a, b};
      break;
    }
    default:
      break;
  }
  return p;
}

PanelValues OpPanelValues(int row, const OpParams &params) {
  PanelValues v;
  const OpEntry *e = Row(row);
  if (!e) return v;
  const OpPanel panel = OpPanelFor(row);
  const OpParams def = OpDefaultProcess(row).params;
  switch (e->kind) {
    case kKindInt:
    case kKindAngle:
    case kKindPosterize:
      v.sliders = {params.i[0]};
      break;
    case kKindInt3:
      v.sliders = {params.i[0], params.i[1], params.i[2]};
      break;
    case kKindReal:
      v.sliders = {Hundredths(params.r[0])};
      break;
    case kKindReal3:
      v.sliders = {Hundredths(params.r[0]), Hundredths(params.r[1]), Hundredths(params.r[2])};
      break;
    case kKindResize:
    case kKindCanvas: {
      const bool percent = params.width_percent > 0;
      v.groups = {percent ? 1 : 0};
      v.fields = percent ? std::vector<int>{params.width_percent, params.height_percent > 0 ? params.height_percent
                                                                                             : params.width_percent}
                         : std::vector<int>{params.width, params.height};
      v.checks = {params.keep_ratio ? 1 : 0, params.only_decrease ? 1 : 0, params.only_increase ? 1 : 0};
      if (e->kind == kKindResize) v.groups.push_back(params.resample - 1);
      break;
    }
    case kKindCrop:
      v.fields = {params.i[0], params.i[1], params.i[2], params.i[3]};
      break;
    case kKindDpi:
      v.fields = {params.i[0], params.i[1]};
      break;
    case kKindColors:
    case kKindGrey: {
      const int *codes = e->kind == kKindGrey ? kGreyCodes : kColorCodes;
      int k = IndexOf(codes, 8, params.i[0]);
      if (k < 0) k = IndexOf(codes, 8, def.i[0]);
      v.groups = {k};
      v.checks = {params.i[1] == 1 ? 1 : 0};
      break;
    }
    case kKindBinary: {
      int k = IndexOf(kBinaryCodes, 4, params.i[0]);
      v.groups = {k < 0 ? 0 : k};
      break;
    }
    case kKindFilterSize: {
      const int n = params.i[0];
      v.groups = {n >= 3 && n <= 13 && n % 2 == 1 ? (n - 3) / 2 : (def.i[0] - 3) / 2};
      break;
    }
    case kKindSwap:
      v.groups = {params.i[0] >= 0 && params.i[0] < 5 ? params.i[0] : 4};
      break;
    case kKindDeinterlace:
      v.groups = {(params.i[0] & 1) ? 1 : 0, (params.i[0] & 2) ? 0 : 1};
      break;
    default:
      break;
  }
  for (size_t k = 0; k < v.sliders.size() && k < panel.sliders.size(); ++k)
    v.sliders[k] = Clamp(v.sliders[k], panel.sliders[k].min, panel.sliders[k].max);
  // Size fields in percent have their own range.
  for (size_t k = 0; k < v.fields.size() && k < panel.fields.size(); ++k) {
    const int hi = panel.size_panel && v.groups[0] == 1 ? 10000 : panel.fields[k].max;
    v.fields[k] = Clamp(v.fields[k], panel.fields[k].min, hi);
  }
  for (size_t k = 0; k < v.groups.size() && k < panel.groups.size(); ++k)
    v.groups[k] = Clamp(v.groups[k], 0, static_cast<int>(panel.groups[k].toggles.size()) - 1);
  return v;
}

void OpPanelApply(int row, const PanelValues &v, OpParams *params) {
  const OpEntry *e = Row(row);
  if (!e || !params) return;
  auto slider = [&](size_t k) { return k < v.sliders.size() ? v.sliders[k] : 0; };
  auto group = [&](size_t k) { return k < v.groups.size() ? v.groups[k] : 0; };
  auto check = [&](size_t k) { return k < v.checks.size() ? v.checks[k] : 0; };
  auto field = [&](size_t k) { return k < v.fields.size() ? v.fields[k] : 0; };
  OpParams &p = *params;
  switch (e->kind) {
    case kKindInt:
    case kKindAngle:
    case kKindPosterize:
      p.i[0] = slider(0);
      break;
    case kKindInt3:
      for (int k = 0; k < 3; ++k) p.i[k] = slider(k);
      break;
    case kKindReal:
      p.r[0] = slider(0) / 100.0;
      break;
    case kKindReal3:
      for (int k = 0; k < 3; ++k) p.r[k] = slider(k) / 100.0;
      break;
    case kKindResize:
    case kKindCanvas:
      if (group(0) == 1) {
        p.width_percent = static_cast<int16_t>(Clamp(field(0), 1, 10000));
        p.height_percent = static_cast<int16_t>(Clamp(field(1), 1, 10000));
        p.width = p.height = 0;
      } else {
        p.width = Clamp(field(0), 1, 65535);
        p.height = Clamp(field(1), 1, 65535);
        p.width_percent = p.height_percent = 0;
      }
      p.keep_ratio = static_cast<int16_t>(check(0) != 0);
      p.only_decrease = static_cast<int16_t>(check(1) != 0);
      p.only_increase = static_cast<int16_t>(check(2) != 0);
      if (e->kind == kKindResize) p.resample = static_cast<int16_t>(Clamp(group(1), 0, 3) + 1);
      break;
    case kKindCrop:
      for (int k = 0; k < 4; ++k) p.i[k] = field(k);
      break;
    case kKindDpi:
      p.i[0] = field(0);
      p.i[1] = field(1);
      break;
    case kKindColors:
    case kKindGrey: {
      const int *codes = e->kind == kKindGrey ? kGreyCodes : kColorCodes;
      const int k = Clamp(group(0), 0, 7);
      p.i[0] = codes[k] >= 0 ? codes[k] : e->def_int[0];
      p.i[1] = check(0) ? 1 : 4;
      break;
    }
    case kKindBinary:
      p.i[0] = kBinaryCodes[Clamp(group(0), 0, 3)];
      break;
    case kKindFilterSize:
      p.i[0] = 3 + 2 * Clamp(group(0), 0, 5);
      break;
    case kKindSwap:
      p.i[0] = Clamp(group(0), 0, 4);
      break;
    case kKindDeinterlace:
      p.i[0] = (group(0) == 1 ? 1 : 0) | (group(1) == 0 ? 2 : 0);
      break;
    default:
      break;
  }
}

std::string PanelNumberText(int value, int decimals) {
  char buf[32];
  if (decimals == 2) {
    const int a = std::abs(value);
    std::snprintf(buf, sizeof buf, "%s%d.%02d", value < 0 ? "-" : "", a / 100, a % 100);
  } else {
    std::snprintf(buf, sizeof buf, "%d", value);
  }
  return buf;
}

bool PanelNumberParse(const char *text, const PanelNumber &number, int *value) {
  if (!text) return false;
  while (*text == ' ' || *text == '\t') ++text;
  if (!*text) return false;
  char *end = nullptr;
  long v;
  if (number.decimals == 2) {
    const double d = std::strtod(text, &end);
    if (end == text || !std::isfinite(d) || std::fabs(d) > 1e7) return false;
    v = std::lround(d * 100.0);
  } else {
    v = std::strtol(text, &end, 10);
    if (end == text) return false;
  }
  while (*end == ' ' || *end == '\t') ++end;
  if (*end) return false;
  if (v < number.min || v > number.max) return false;
  *value = static_cast<int>(v);
  return true;
}

int SizeOtherSide(int typed, bool typed_width, bool percent, uint32_t pic_w, uint32_t pic_h) {
  if (typed <= 0) return -1;
  if (percent) return typed;
  if (!pic_w || !pic_h) return -1;
  const double other = typed_width ? static_cast<double>(typed) * pic_h / pic_w
                                   : static_cast<double>(typed) * pic_w / pic_h;
  return std::max(1, static_cast<int>(std::min(other + 0.5, 65535.0)));
}

int SizeInOtherUnit(int value, bool to_percent, uint32_t side) {
  int out;
  if (!side || value <= 0)
    out = to_percent ? 100 : (side ? static_cast<int>(side) : value);
  else if (to_percent)
    out = static_cast<int>(std::min(value * 100.0 / side + 0.5, 10000.0));
  else
    out = static_cast<int>(std::min(value * static_cast<double>(side) / 100.0 + 0.5, 65535.0));
  return std::max(1, out);
}

// ---- remembered values --------------------------------------------------------------------

namespace {

enum Field { kI0, kI1, kI2, kR0 };
struct Slot {
  const char *option, *sub;
  Field field;
  int slot;
};
const Slot kSlots[] = {
    {"-grey", nullptr, kI0, 0},       {"-grey", nullptr, kI1, kDitherSlot},
    {"-colors", nullptr, kI0, 1},     {"-colors", nullptr, kI1, kDitherSlot},
    {"-binary", nullptr, kI0, 3},     {"-rotate", nullptr, kI0, 4},
    {"-brightness", nullptr, kI0, 5}, {"-contrast", nullptr, kI0, 6},
    {"-gamma", nullptr, kR0, 7},      {"-balance", nullptr, kI0, 8},
    {"-balance", nullptr, kI1, 9},    {"-balance", nullptr, kI2, 10},
    {"-solarize", nullptr, kI0, 11},  {"-posterize", nullptr, kI0, 12},
    {"-swap", nullptr, kI0, 13},      {"-eedge", nullptr, kI0, 14},
    {"-soften", nullptr, kI0, 14},    {"-blur", nullptr, kI0, 14},
    {"-sharpen", nullptr, kI0, 14},   {"-average", nullptr, kI0, 15},
    {"-gauss", nullptr, kI0, 15},     {"-maximum", nullptr, kI0, 15},
    {"-minimum", nullptr, kI0, 15},   {"-medianb", nullptr, kI0, 15},
    {"-medianc", nullptr, kI0, 15},   {"-noise", "uniform", kR0, 16},
    {"-noise", "gaussian", kR0, 17},  {"-noise", "laplacian", kR0, 18},
    {"-noise", "poisson", kR0, 19},   {"-mosaic", nullptr, kI0, 20},
    {"-tile", nullptr, kI0, 20},      {"-oil", nullptr, kI0, 21},
    {"-swirl", nullptr, kI0, 22},     {"-spread", nullptr, kI0, 23},
    {"-lens", nullptr, kI0, 24},
};

bool SlotMatches(const Slot &s, const OpEntry &e) {
  if (std::strcmp(s.option, e.option) != 0) return false;
  if (!s.sub || !e.sub_option) return !s.sub && !e.sub_option;
  return std::strcmp(s.sub, e.sub_option) == 0;
}

}  // namespace

OpParams OpRecallParams(int row, const int32_t last[kLastValueCount]) {
  OpParams p = OpDefaultProcess(row).params;
  const OpEntry *e = Row(row);
  if (!e || !last) return p;
  bool any = false;
  for (const Slot &s : kSlots) {
    if (!SlotMatches(s, *e) || last[s.slot] == kNoLastValue) continue;
    any = true;
    const int32_t v = last[s.slot];
    switch (s.field) {
      case kI0: p.i[0] = v; break;
      case kI1: p.i[1] = v; break;
      case kI2: p.i[2] = v; break;
      case kR0: p.r[0] = v / 100.0; break;
    }
  }
  // Through the panel and back: out-of-range values are clamped, unknown
  // codes replaced by the defaults.
  if (any) OpPanelApply(row, OpPanelValues(row, p), &p);
  return p;
}

void OpStoreParams(int row, const OpParams &params, int32_t last[kLastValueCount]) {
  const OpEntry *e = Row(row);
  if (!e || !last) return;
  for (const Slot &s : kSlots) {
    if (!SlotMatches(s, *e)) continue;
    switch (s.field) {
      case kI0: last[s.slot] = params.i[0]; break;
      case kI1: last[s.slot] = params.i[1]; break;
      case kI2: last[s.slot] = params.i[2]; break;
      case kR0: last[s.slot] = Hundredths(params.r[0]); break;
    }
  }
}

OpProcess OpNewProcess(int row) {
  OpProcess p = OpDefaultProcess(row);
  const OpEntry *e = Row(row);
  if (e && (e->kind == kKindResize || e->kind == kKindCanvas)) {
    p.params.width_percent = p.params.height_percent = 100;
    p.params.keep_ratio = 1;
  }
  return p;
}

std::string OpProcessLabel(const OpProcess &process) {
  const OpEntry *e = Row(process.index);
  if (!e) return "";
  std::string line = OpProcessCommandLine(process);
  while (!line.empty() && line.back() == ' ') line.pop_back();
  return std::string(e->name) + "  " + line;
}

// ---- selection -----------------------------------------------------------------------------

OpRect SelectionRect(int wx0, int wy0, int wx1, int wy1, int org_x, int org_y, double zoom, uint32_t pic_w,
                     uint32_t pic_h) {
  if (zoom <= 0) zoom = 100;
  auto boundary = [&](int w, int org, uint32_t size) {
    const long v = std::lround((w - org) * 100.0 / zoom);
    return static_cast<int32_t>(std::min<long>(std::max<long>(v, 0), static_cast<long>(size)));
  };
  const int32_t x0 = boundary(std::min(wx0, wx1), org_x, pic_w), x1 = boundary(std::max(wx0, wx1), org_x, pic_w);
  const int32_t y0 = boundary(std::min(wy0, wy1), org_y, pic_h), y1 = boundary(std::max(wy0, wy1), org_y, pic_h);
  return OpRect{x0, y0, x1 - x0, y1 - y0};
}

OpRect SelectionOnWindow(const OpRect &sel, int org_x, int org_y, double zoom) {
  auto at = [&](int32_t v, int org) { return org + static_cast<int32_t>(std::lround(v * zoom / 100.0)); };
  const int32_t x0 = at(sel.x, org_x), y0 = at(sel.y, org_y);
  const int32_t x1 = at(sel.x + sel.width, org_x), y1 = at(sel.y + sel.height, org_y);
  return OpRect{x0, y0, x1 - x0, y1 - y0};
}

std::string SelectionText(const OpRect &sel) {
  char buf[96];
  std::snprintf(buf, sizeof buf, "Selection %dx%d at %d,%d", sel.width, sel.height, sel.x, sel.y);
  return buf;
}

// ---- auto crop -------------------------------------------------------------------------------

bool AutoCropRect(const TslPicture &pic, uint32_t back, int tolerance, OpRect *out) {
  if (!pic.pixels || pic.width == 0 || pic.height == 0) return false;
  const int br = (back >> 16) & 0xFF, bg = (back >> 8) & 0xFF, bb = back & 0xFF;
  tolerance = std::max(0, tolerance);
  std::vector<uint8_t> rgba(static_cast<size_t>(pic.width) * 4);
  int32_t left = static_cast<int32_t>(pic.width), right = -1, top = -1, bottom = -1;
  for (uint32_t y = 0; y < pic.height; ++y) {
    tslGetRowRGBA(&pic, y, rgba.data());
    int32_t first = -1, last = -1;
    for (uint32_t x = 0; x < pic.width; ++x) {
      const uint8_t *p = &rgba[static_cast<size_t>(x) * 4];
      if (std::abs(p[0] - br) > tolerance || std::abs(p[1] - bg) > tolerance || std::abs(p[2] - bb) > tolerance) {
        if (first < 0) first = static_cast<int32_t>(x);
        last = static_cast<int32_t>(x);
      }
    }
    if (first < 0) continue;
    if (top < 0) top = static_cast<int32_t>(y);
    bottom = static_cast<int32_t>(y);
    left = std::min(left, first);
    right = std::max(right, last);
  }
  if (top < 0) return false;
  *out = OpRect{left, top, right - left + 1, bottom - top + 1};
  return true;
}

// ---- messages --------------------------------------------------------------------------------

std::string OpStatusText(int status) {
  switch (status) {
    case kOpDone:
      return "";
    case kOpNoMemory:
      return "Not enough memory";
    case kOpEmptyRect:
      return "Nothing to work on: the chosen area lies outside the picture,\nor the chosen size is not allowed.";
    case kOpNotBilevel:
      return "This operation does not work on black and white pictures.\n"
             "Convert the picture to grey levels or colours first.";
    default: {
      char buf[64];
      std::snprintf(buf, sizeof buf, "The operation failed (code %d).", status);
      return buf;
    }
  }
}

}  // namespace quilla
