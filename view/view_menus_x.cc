// The view's menus (menu bar or pop-up menu) and its tool bar.  Every entry
// runs a view command word; entries whose dialogs are not part of this
// program yet are shown insensitive rather than doing something else.
#include <Xm/CascadeB.h>
#include <Xm/PushB.h>
#include <Xm/RowColumn.h>
#include <Xm/Separator.h>
#include <Xm/ToggleB.h>
#include <Xm/Xm.h>

#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "core/app_x.h"
#include "core/settings.h"
#include "view/op_model.h"
#include "view/toolbar_icons.h"
#include "view/view_menus_x.h"
#include "widgets/BubbleHelp.h"
#include "view/view_model.h"
#include "view/view_x.h"

namespace quilla {

namespace {

// One menu entry: widget name (also the command word unless `command` is
// given), label, accelerator, its text, and whether the command exists yet.
struct Entry {
  const char *name;
  const char *label;
  const char *accel;       // translation syntax, nullptr = none
  const char *accel_text;  // shown beside the label
  bool available;
  bool needs_picture;
  const char *command = nullptr;
};

const Entry kFileMenu[] = {
    {"open", "Open...", "Ctrl<Key>o", "Ctrl+O", true, false},
    {"reopenFiles", "Reload", "Ctrl<Key>r", "Ctrl+R", true, true},
    {"saveFiles", "Save As...", "Ctrl<Key>s", "Ctrl+S", true, true},
    {"close", "Close", "Ctrl<Key>w", "Ctrl+W", true, true},
    {nullptr, nullptr, nullptr, nullptr, false, false},
    {"browseFiles", "Browser...", "Ctrl<Key>b", "Ctrl+B", true, false},
    {"viewHexa", "View Hexa...", "Ctrl<Key>h", "Ctrl+H", true, false},
    {"capture", "Capture...", nullptr, nullptr, true, false},
    {"multiPage", "Multi-page File...", nullptr, nullptr, true, false},
    {"slideShow", "Slide Show...", "Ctrl<Key>l", "Ctrl+L", true, false},
    {"sequenceConvert", "Batch Convert...", "Ctrl<Key>n", "Ctrl+N", true, false},
    {"multiConvert", "Multi Convert...", "Ctrl<Key>u", "Ctrl+U", true, false},
    {nullptr, nullptr, nullptr, nullptr, false, false},
    {"properties", "Properties...", "Ctrl<Key>e", "Ctrl+E", true, true},
    {"describe", "Description...", "Ctrl<Key>d", "Ctrl+D", true, true},
    {"copyTo", "Copy To...", "Alt<Key>c", "Alt+C", true, true},
    {"moveTo", "Move To...", "Alt<Key>m", "Alt+M", true, true},
    {"rename", "Rename...", "<Key>F2", "F2", true, true},
    {"delete", "Delete", nullptr, "Del", true, true},
    {nullptr, nullptr, nullptr, nullptr, false, false},
    {"quit", "Quit", "Ctrl<Key>q", "Ctrl+Q", true, false},
};

const Entry kEditMenu[] = {
    {"undo", "Undo", "Ctrl<Key>z", "Ctrl+Z", true, true},
    {nullptr, nullptr, nullptr, nullptr, false, false},
    {"crop", "Crop", "Ctrl<Key>y", "Ctrl+Y", true, true},
    {"resize", "Resize...", "Shift<Key>s", "Shift+S", true, true},
    {nullptr, nullptr, nullptr, nullptr, false, false},
    {"flipVertical", "Flip Vertical", "Shift<Key>v", "Shift+V", true, true},
    {"flipHorizontal", "Flip Horizontal", "Shift<Key>h", "Shift+H", true, true},
    {"rotateLeft", "Rotate Left", "Shift<Key>l", "Shift+L", true, true},
    {"rotateRight", "Rotate Right", "Shift<Key>r", "Shift+R", true, true},
    {"changeDpi", "Change DPI...", nullptr, nullptr, true, true},
    {"jpegTransform", "JPEG Lossless Transformations...", nullptr, nullptr, true, true},
    {nullptr, nullptr, nullptr, nullptr, false, false},
    {"options", "Options...", nullptr, nullptr, true, false},
};

const Entry kViewMenu[] = {
    {"zoom+", "Zoom In", nullptr, "+", true, true},
    {"zoom-", "Zoom Out", nullptr, "-", true, true},
    {"zoom100", "Zoom 1:1", nullptr, "*", true, true},
    {nullptr, nullptr, nullptr, nullptr, false, false},
    {"fitImage", "Fit", "Ctrl<Key>t", "Ctrl+T", true, true},
    {"adaptiveSize", "Adapt Window", "Ctrl<Key>a", "Ctrl+A", true, true},
    {"fullScreen", "Full Screen", "Ctrl<Key>f", "Ctrl+F", true, true},
    {nullptr, nullptr, nullptr, nullptr, false, false},
    {"statusBar", "Status Bar", "Ctrl Shift<Key>s", "Ctrl+Shift+S", true, true},
    {"toolBar", "Tool Bar", "Ctrl Shift<Key>t", "Ctrl+Shift+T", true, true},
    {"colorInformation", "Color Information", "Ctrl Shift<Key>i", "Ctrl+Shift+I", true, true},
    {"showMask", "Show Mask", nullptr, "M", true, true},
    {"stopAnim", "Stop Animation", nullptr, nullptr, true, true},
};

const Entry kGoMenu[] = {
    {"first", "First File", nullptr, "Home", true, true},
    {"prev", "Previous File", nullptr, "Page Up", true, true},
    {"next", "Next File", nullptr, "Page Down", true, true},
    {"last", "Last File", nullptr, "End", true, true},
};

const Entry kPageMenu[] = {
    {"pageFirst", "First Page", nullptr, "Shift+Home", true, true},
    {"pagePrev", "Previous Page", nullptr, "Shift+Page Up", true, true},
    {"pageNext", "Next Page", nullptr, "Shift+Page Down", true, true},
    {"pageLast", "Last Page", nullptr, "Shift+End", true, true},
    {"pageNumber", "Go To Page...", nullptr, nullptr, true, true},
    {nullptr, nullptr, nullptr, nullptr, false, false},
    {"extract", "Extract Pages", nullptr, nullptr, true, true},
    {"extractInto", "Extract Pages Into...", nullptr, nullptr, true, true},
};

const Entry kHelpMenu[] = {
    {"about", "About...", nullptr, nullptr, true, false},
    {"formats", "Formats...", nullptr, nullptr, true, false},
    {"thanks", "Thanks...", nullptr, nullptr, true, false},
};

struct MenuDef {
  const char *name;  // cascade name
  const char *label;
  char mnemonic;
  const Entry *entries;
  int count;
};

#define MENU(n, l, m, e) {n, l, m, e, static_cast<int>(sizeof e / sizeof e[0])}
const MenuDef kMenus[] = {
    MENU("File", "File", 'F', kFileMenu), MENU("Edit", "Edit", 'E', kEditMenu),
    MENU("View", "View", 'V', kViewMenu), MENU("Go", "Go", 'G', kGoMenu), MENU("Page", "Page", 'P', kPageMenu),
    MENU("Help", "Help", 'H', kHelpMenu),
};
#undef MENU

void EntryActivated(Widget w, XtPointer client, XtPointer) {
  const char *word = static_cast<const char *>(client);
  if (std::strcmp(word, "about") == 0) {
    OpenAbout(App().shell);
    return;
  }
  RunViewCommand(w, word);
}

void FitModeChosen(Widget w, XtPointer client, XtPointer call) {
  auto *cb = static_cast<XmToggleButtonCallbackStruct *>(call);
  if (!cb->set) return;
  SetViewFitMode(w, static_cast<int>(reinterpret_cast<intptr_t>(client)));
}

const char *const kFitLabels[8] = {"No Fit",          "Fit Window To Image", "Fit Large Image To Window",
                                   "Fit Image To Window", "Fit Image To Width", "Fit Image To Height",
                                   "Fit Large Image To Desktop", "Fit Image To Desktop"};

void AddEntries(Widget menu, const MenuDef &def, bool in_view, bool accelerators) {
  for (int i = 0; i < def.count; ++i) {
    const Entry &e = def.entries[i];
    if (!e.name) {
      XtCreateManagedWidget("separator", xmSeparatorWidgetClass, menu, nullptr, 0);
      continue;
    }
    Arg args[4];
    int n = 0;
    XmString label = XmStringCreateLocalized(const_cast<char *>(e.label));
    XmString acc = e.accel_text ? XmStringCreateLocalized(const_cast<char *>(e.accel_text)) : nullptr;
    XtSetArg(args[n], XmNlabelString, label), ++n;
    if (acc) XtSetArg(args[n], XmNacceleratorText, acc), ++n;
    if (accelerators && e.accel) XtSetArg(args[n], XmNaccelerator, e.accel), ++n;
    Widget b = XtCreateManagedWidget(e.name, xmPushButtonWidgetClass, menu, args, n);
    XmStringFree(label);
    if (acc) XmStringFree(acc);
    XtAddCallback(b, XmNactivateCallback, EntryActivated, const_cast<char *>(e.name));
    if (!e.available || (!in_view && e.needs_picture)) XtSetSensitive(b, False);
  }
  if (std::strcmp(def.name, "View") == 0) {
    // The fit modes, one radio entry each, in the order of the settings.
    Widget sub = XmCreatePulldownMenu(menu, const_cast<char *>("MenuFit"), nullptr, 0);
    XtVaSetValues(sub, XmNradioBehavior, True, nullptr);
    for (int m = 0; m < 8; ++m) {
      XmString label = XmStringCreateLocalized(const_cast<char *>(kFitLabels[m]));
      Widget t = XtVaCreateManagedWidget(kFitModeNames[m], xmToggleButtonWidgetClass, sub, XmNlabelString, label,
                                         XmNindicatorType, XmONE_OF_MANY, XmNset,
                                         Settings().View.Fit == m ? True : False, nullptr);
      XmStringFree(label);
      XtAddCallback(t, XmNvalueChangedCallback, FitModeChosen, reinterpret_cast<XtPointer>(static_cast<intptr_t>(m)));
      if (!in_view) XtSetSensitive(t, False);
    }
    XmString label = XmStringCreateLocalized(const_cast<char *>("Fit Mode"));
    XtVaCreateManagedWidget("fitMode", xmCascadeButtonWidgetClass, menu, XmNsubMenuId, sub, XmNlabelString, label,
                            nullptr);
    XmStringFree(label);
  }
}

// ---- the operation menus: Image, Filter and Effects, built from the catalogue

// Command words live as long as the program (menus of every view use them).
const char *KeptWord(const std::string &word) {
  static std::set<std::string> words;
  return words.insert(word).first->c_str();
}

Widget OpButton(Widget menu, const std::string &name, const std::string &label, const std::string &word,
                bool enabled) {
  XmString s = XmStringCreateLocalized(const_cast<char *>(label.c_str()));
  Widget b = XtVaCreateManagedWidget(name.c_str(), xmPushButtonWidgetClass, menu, XmNlabelString, s, nullptr);
  XmStringFree(s);
  XtAddCallback(b, XmNactivateCallback, EntryActivated, const_cast<char *>(KeptWord(word)));
  if (!enabled) XtSetSensitive(b, False);
  return b;
}

void OpItems(Widget menu, int top, int submenu, bool enabled) {
  for (const OpMenuItem &item : OpMenuItems(top, submenu)) OpButton(menu, item.name, item.label, item.word, enabled);
}

// The "Dithered" entry of the colour and grey menus: the dithering the
// entries above it use, kept with the dialogs' remembered values.
void DitherToggled(Widget, XtPointer, XtPointer call) {
  auto *cb = static_cast<XmToggleButtonCallbackStruct *>(call);
  Settings().Process.LastValue[kDitherSlot] = cb->set ? 1 : 4;
}
void DitherMenuShown(Widget menu, XtPointer, XtPointer) {
  Widget t = XtNameToWidget(menu, "toggleDithered");
  if (t) XmToggleButtonSetState(t, Settings().Process.LastValue[kDitherSlot] == 1, False);
}

Widget OpCascade(Widget parent, int submenu, bool enabled) {
  const OpSubmenuDesc &d = kOpSubmenus[submenu];
  Widget pull = XmCreatePulldownMenu(parent, const_cast<char *>(d.name), nullptr, 0);
  OpItems(pull, d.top, submenu, enabled);
  if (submenu == kSubRotate) {
    OpButton(pull, "rotateLeft", "Rotate Left", "rotateLeft", enabled);
    OpButton(pull, "rotateRight", "Rotate Right", "rotateRight", enabled);
  }
  if (submenu == kSubColors || submenu == kSubGrey) {
    XtCreateManagedWidget("separator", xmSeparatorWidgetClass, pull, nullptr, 0);
    XmString s = XmStringCreateLocalized(const_cast<char *>("Dithered"));
    Widget t = XtVaCreateManagedWidget("toggleDithered", xmToggleButtonWidgetClass, pull, XmNlabelString, s,
                                       XmNvisibleWhenOff, True, nullptr);
    XmStringFree(s);
    XtAddCallback(t, XmNvalueChangedCallback, DitherToggled, nullptr);
    XtAddCallback(pull, XmNmapCallback, DitherMenuShown, nullptr);
    if (!enabled) XtSetSensitive(t, False);
  }
  XmString s = XmStringCreateLocalized(const_cast<char *>(d.label));
  XtVaCreateManagedWidget(d.label, xmCascadeButtonWidgetClass, parent, XmNsubMenuId, pull, XmNlabelString, s, nullptr);
  XmStringFree(s);
  return pull;
}

// Adds the Image, Filter and Effects cascades to a menu bar or pop-up menu.
void AddOperationMenus(Widget parent, bool in_view, bool menu_bar) {
  const char mnemonics[3] = {'I', 'l', 't'};  // Alt+C is copyTo
  for (int top = 0; top < 3; ++top) {
    const std::string pull_name = top == kTopEffects ? kOpSubmenus[kSubEffects].name
                                                     : std::string("Menu") + kOpTopMenuNames[top];
    Widget pull = XmCreatePulldownMenu(parent, const_cast<char *>(pull_name.c_str()), nullptr, 0);
    if (top == kTopEffects) {
      OpItems(pull, kTopEffects, kSubEffects, in_view);
    } else {
      for (int sub = 0; sub < kOpSubmenuCount; ++sub) {
        if (kOpSubmenus[sub].top != top || sub == kSubEffects) continue;
        if (sub == kSubAdjust) XtCreateManagedWidget("separator", xmSeparatorWidgetClass, pull, nullptr, 0);
        OpCascade(pull, sub, in_view);
      }
      XtCreateManagedWidget("separator", xmSeparatorWidgetClass, pull, nullptr, 0);
      OpItems(pull, top, kSubNone, in_view);
      if (top == kTopImage) {
        OpButton(pull, "autoCrop", "Auto Crop", "autoCrop", in_view);
        XtCreateManagedWidget("separator", xmSeparatorWidgetClass, pull, nullptr, 0);
        OpButton(pull, "advancedOperations", "Advanced Operations...", "advancedOperations", true);
      } else {
        OpButton(pull, "userFilter", "User Defined Filter...", "userFilter", in_view);
      }
    }
    XmString s = XmStringCreateLocalized(const_cast<char *>(kOpTopMenuNames[top]));
    XtVaCreateManagedWidget(kOpTopMenuNames[top], xmCascadeButtonWidgetClass, parent, XmNsubMenuId, pull,
                            XmNlabelString, s, XmNmnemonic, menu_bar ? mnemonics[top] : 0, nullptr);
    XmStringFree(s);
  }
}

// The bubble text of a tool bar button: the label of the menu entry that
// runs the same command, with its key ("Zoom In (+)").
std::string BubbleTextFor(const char *command) {
  for (const MenuDef &def : kMenus)
    for (int i = 0; i < def.count; ++i) {
      const Entry &e = def.entries[i];
      const char *word = e.command ? e.command : e.name;
      if (!word || std::strcmp(word, command) != 0) continue;
      std::string text = e.label;
      if (text.size() > 3 && text.compare(text.size() - 3, 3, "...") == 0) text.resize(text.size() - 3);
      if (e.accel_text) text += std::string(" (") + e.accel_text + ")";
      return text;
    }
  return command;
}

Boolean ToolTipsWanted() {
  return Settings().Start.ShowToolTipsInToolbar && Settings().Browser.ShowToolTips ? True : False;
}

bool InsideView(Widget w) {
  for (Widget p = w; p; p = XtParent(p))
    if (XtIsShell(p)) return std::strcmp(XtName(p), "QuillView") == 0;
  return false;
}

}  // namespace

Widget CreateViewMenuBar(Widget parent) {
  // Inside a view the keys come through the drawing area's translations;
  // elsewhere (the start window) the entries carry real accelerators.
  const bool in_view = InsideView(parent);
  Widget bar = XmCreateMenuBar(parent, const_cast<char *>("MenuBar"), nullptr, 0);
  for (const MenuDef &def : kMenus) {
    Widget pull = XmCreatePulldownMenu(bar, const_cast<char *>((std::string("Menu") + def.name).c_str()), nullptr, 0);
    AddEntries(pull, def, in_view, !in_view);
    XmString label = XmStringCreateLocalized(const_cast<char *>(def.label));
    Widget cascade = XtVaCreateManagedWidget(def.name, xmCascadeButtonWidgetClass, bar, XmNsubMenuId, pull,
                                             XmNlabelString, label, XmNmnemonic, def.mnemonic, nullptr);
    XmStringFree(label);
    if (std::strcmp(def.name, "Help") == 0) XtVaSetValues(bar, XmNmenuHelpWidget, cascade, nullptr);
    if (std::strcmp(def.name, "View") == 0) AddOperationMenus(bar, in_view, true);
  }
  XtManageChild(bar);
  return bar;
}

int MenuBarNeededWidth(Widget bar) {
  WidgetList kids = nullptr;
  Cardinal n = 0;
  int sum = 0;
  XtVaGetValues(bar, XmNchildren, &kids, XmNnumChildren, &n, nullptr);
  for (Cardinal k = 0; k < n; ++k)
    if (XtIsManaged(kids[k])) {
      XtWidgetGeometry pref;
      XtQueryGeometry(kids[k], nullptr, &pref);
      sum += pref.width + 2;
    }
  return sum;
}

Widget CreateViewPopupMenu(Widget parent) {
  Widget popup = XmCreatePopupMenu(parent, const_cast<char *>("MenuPopup"), nullptr, 0);
  for (const MenuDef &def : kMenus) {
    Widget pull = XmCreatePulldownMenu(popup, const_cast<char *>((std::string("Menu") + def.name).c_str()), nullptr, 0);
    AddEntries(pull, def, true, false);
    XmString label = XmStringCreateLocalized(const_cast<char *>(def.label));
    XtVaCreateManagedWidget(def.name, xmCascadeButtonWidgetClass, popup, XmNsubMenuId, pull, XmNlabelString, label,
                            nullptr);
    XmStringFree(label);
    if (std::strcmp(def.name, "View") == 0) AddOperationMenus(popup, true, false);
  }
  return popup;
}

namespace {
// Tool bar pixmaps, made once per display and colours and kept until quit
// (buttons of open windows use them).
struct GlyphSet {
  Display *dpy;
  Pixel fg, bg;
  unsigned depth;
  std::vector<Pixmap> pixmaps;
};
std::vector<GlyphSet> g_glyphs;

const std::vector<Pixmap> &Glyphs(Display *dpy, Pixel fg, Pixel bg, unsigned depth) {
  for (const GlyphSet &g : g_glyphs)
    if (g.dpy == dpy && g.fg == fg && g.bg == bg && g.depth == depth) return g.pixmaps;
  GlyphSet set{dpy, fg, bg, depth, {}};
  for (int k = 0; k < kToolbarButtonCount; ++k) {
    unsigned char bits[32];
    ToolbarGlyphBits(kToolbarButtons[k], bits);
    set.pixmaps.push_back(XCreatePixmapFromBitmapData(dpy, DefaultRootWindow(dpy), reinterpret_cast<char *>(bits),
                                                      16, 16, fg, bg, depth));
  }
  g_glyphs.push_back(std::move(set));
  return g_glyphs.back().pixmaps;
}
}  // namespace

Widget CreateViewToolBar(Widget parent) {
  Widget bar = XtVaCreateWidget("toolBar", xmRowColumnWidgetClass, parent, XmNorientation, XmHORIZONTAL,
                                XmNpacking, XmPACK_TIGHT, XmNspacing, 0, XmNmarginHeight, 1, XmNmarginWidth, 1,
                                nullptr);
  Display *dpy = XtDisplay(parent);
  const int32_t mask = Settings().Start.ToolbarViewConfig;
  BubbleHelpSetEnabledProc(ToolTipsWanted);
  for (int i = 0; i < kToolbarButtonCount; ++i) {
    const ToolbarButton &tb = kToolbarButtons[i];
    Widget b = XtVaCreateWidget(tb.name, xmPushButtonWidgetClass, bar, XmNlabelType, XmPIXMAP, XmNmarginWidth, 2,
                                XmNmarginHeight, 2, XmNtraversalOn, False, nullptr);
    Pixel fg, bg;
    Cardinal depth;
    XtVaGetValues(b, XmNforeground, &fg, XmNbackground, &bg, XmNdepth, &depth, nullptr);
    XtVaSetValues(b, XmNlabelPixmap, Glyphs(dpy, fg, bg, depth)[i], nullptr);
    XtAddCallback(b, XmNactivateCallback, EntryActivated, const_cast<char *>(tb.command));
    BubbleHelpAttach(b, BubbleTextFor(tb.command).c_str());
    if (ToolbarButtonShown(mask, i)) XtManageChild(b);
  }
  return bar;
}

void FreeToolbarPixmaps() {
  for (GlyphSet &g : g_glyphs)
    for (Pixmap p : g.pixmaps) XFreePixmap(g.dpy, p);
  g_glyphs.clear();
}

}  // namespace quilla
