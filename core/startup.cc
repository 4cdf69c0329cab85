// Start-up decisions that need no display: the option pass, the banner, the
// usage text and the fallback resources.
#include "core/startup.h"

#include <cstdlib>
#include <cstring>

namespace quilla {

StartOptions ParseStartOptions(int argc, char **argv, bool open_all_default) {
  StartOptions o;
  o.all = open_all_default;
  if (argc > 1 && (std::strcmp(argv[1], "-help") == 0 || std::strcmp(argv[1], "-h") == 0)) {
    o.help = true;
    return o;
  }
  int i = 1;
  for (; i < argc; ++i) {
    const char *a = argv[i];
    if (std::strcmp(a, "-visualid") == 0) {
      if (i + 1 < argc) o.visual_id = std::strtol(argv[++i], nullptr, 16);
    } else if (std::strcmp(a, "-own") == 0) {
      o.own = true;
    } else if (std::strcmp(a, "-popup") == 0) {
      o.popup = true;
    } else if (std::strcmp(a, "-browser") == 0) {
      o.browser = true;
    } else if (std::strcmp(a, "-all") == 0) {
      o.all = true;
    } else if (std::strcmp(a, "-full") == 0) {
      o.full = true;
    } else if (std::strcmp(a, "-verbose") == 0 || std::strcmp(a, "-v") == 0) {
      o.verbose = true;
    } else if (std::strcmp(a, "-ini") == 0) {
      if (i + 1 < argc) ++i;  // consumed before the toolkit opened
    } else if (std::strcmp(a, "-nores") == 0) {
      o.nores = true;
    } else if (std::strcmp(a, "-fi") == 0) {
      o.force_fit = true;
    } else if (std::strcmp(a, "-slide") == 0) {
      if (i + 1 < argc) o.slide = argv[++i];
    } else {
      break;  // the first non-option: it and all that follow are files
    }
  }
  for (; i < argc; ++i) o.files.push_back(argv[i]);
  return o;
}

const char *FindIniPath(int argc, char **argv) {
  for (int i = 1; i + 1 < argc; ++i)
    if (std::strcmp(argv[i], "-ini") == 0) return argv[i + 1];
  return nullptr;
}

bool HasNoResOption(int argc, char **argv) {
  for (int i = 1; i < argc; ++i)
    if (std::strcmp(argv[i], "-nores") == 0) return true;
  return false;
}

namespace {
#if defined(__linux__) && defined(__x86_64__)
const char kPlatform[] = "Linux x86-64";
#elif defined(__linux__) && defined(__aarch64__)
const char kPlatform[] = "Linux ARM64";
#elif defined(__linux__) && defined(__powerpc__)
const char kPlatform[] = "Linux PowerPC";
#else
const char kPlatform[] = "Unknown";
#endif
}  // namespace

std::vector<std::string> BannerLines() {
  return {
      std::string("** Quilla 1.50 picture viewer, browser and converter (") + __DATE__ + "/" + __TIME__ + ") **\n",
      std::string("        Version for ") + kPlatform + "/Motif\n",
      "** Free software for the X Window System, with the tessel image library **\n",
      "\n",
  };
}

std::vector<std::string> UsageLines(const char *argv0, const std::vector<std::string> &visual_lines) {
  std::vector<std::string> lines = BannerLines();
  lines.push_back(std::string("Usage : ") + argv0 + " [options] file ...\n");
  lines.push_back("        Options :\n");
  lines.push_back("          -visualid <id> : Use this visual number\n");
  lines.insert(lines.end(), visual_lines.begin(), visual_lines.end());
  lines.push_back("          -own           : Use own colormap (8 bits only)\n");
  lines.push_back("          -nores         : No default ressources\n");
  lines.push_back("          -popup         : Use popup menu\n");
  lines.push_back("          -browser       : Launch the browser\n");
  lines.push_back("          -slide <file>  : Launch slide show\n");
  lines.push_back("          -all           : Open a window for each picture\n");
  lines.push_back("          -full          : Full screen\n");
  lines.push_back("          -v/-verbose    : Verbose\n");
  lines.push_back("          -ini <file>    : Ini file\n");
  lines.push_back("          -fi            : Force \"Fit to Image\"\n");
  return lines;
}

std::string VisualListLine(unsigned long id, const char *class_name, int depth) {
  char buf[128];
  std::snprintf(buf, sizeof buf, "                0x%x : %-15s / % 2d planes\n", static_cast<unsigned>(id), class_name,
                depth);
  return buf;
}

// The fallback resources: generic rows pad the blank after the colon so that
// every value starts in column 41; rows beginning with the class have one blank.
static const char *const kFallbackResources[] = {
    "*fontList:                              -*-helvetica-medium-r-normal-*-10-*-*-*-*-*-iso8859-1",
    "*background:                            #d9d9d9",
    "*foreground:                            Black",
    "*topShadowColor:                        White",
    "*troughColor:                           #bdbdbd",
    "*highlightColor:                        Black",
    "*highlightThickness:                    1",
    "*selectColor:                           Yellow",
    "*indicatorSize:                         14",
    "*XmPushButton.background:               #bdbdbd",
    "*XmPushButton.marginWidth:              1",
    "*XmPushButton.marginHeight:             1",
    "*XmPushButton.shadowThickness:          2",
    "*XmPushButton.fontList:                 -*-helvetica-medium-r-normal-*-12-*-*-*-*-*-iso8859-1",
    "*XmPushButtonGadget.fontList:           -*-helvetica-medium-r-normal-*-12-*-*-*-*-*-iso8859-1",
    "*XmArrowButton.background:              #bdbdbd",
    "*XmArrowButton.shadowThickness:         2",
    "*XmDrawnButton.background:              #bdbdbd",
    "*XmDrawnButton.marginWidth:             1",
    "*XmDrawnButton.marginHeight:            1",
    "*XmDrawnButton.shadowThickness:         2",
    "*XmLabel.fontList:                      -*-helvetica-medium-r-normal-*-12-*-*-*-*-*-iso8859-1",
    "*XmLabelGadget.fontList:                -*-helvetica-medium-r-normal-*-12-*-*-*-*-*-iso8859-1",
    "*XmToggleButton.fontList:               -*-helvetica-medium-r-normal-*-12-*-*-*-*-*-iso8859-1",
    "*XmToggleButtonGadget.fontList:         -*-helvetica-medium-r-normal-*-12-*-*-*-*-*-iso8859-1",
    "*XmCascadeButton.fontList:              -*-helvetica-medium-r-normal-*-12-*-*-*-*-*-iso8859-1",
    "*XmCascadeButtonGadget.fontList:        -*-helvetica-medium-r-normal-*-12-*-*-*-*-*-iso8859-1",
    "*XmText.background:                     #d3b5b5",
    "*XmTextField.background:                #d3b5b5",
    "*XmTextField.fontList:                  -*-helvetica-medium-r-normal-*-12-*-*-*-*-*-iso8859-1",
    "*XmText.fontList:                       -*-fixed-medium-r-normal-*-13-*-*-*-*-*-iso8859-1",
    "*XmList.fontList:                       -*-fixed-medium-r-normal-*-13-*-*-*-*-*-iso8859-1",
    "*XmList.background:                     #d9d9d9",
    "*XmScrollBar.width:                     18",
    "*XmScrollBar.height:                    18",
    "*XmScrollBar.highlightThickness:        0",
    "*XmScrollBar.background:                #bdbdbd",
    "*XmFrame.shadowType:                    XmSHADOW_ETCHED_IN",
    "*XmFrame*XmLabel.fontList:              -*-helvetica-bold-r-normal-*-12-*-*-*-*-*-iso8859-1",
    "*XmFrame*XmLabelGadget.fontList:        -*-helvetica-bold-r-normal-*-12-*-*-*-*-*-iso8859-1",
    "*XmMenuShell*background:                #d9d9d9",
    "*XmRowColumn.marginHeight:              1",
    "*XmRowColumn.marginHeight:              1",
    "*MenuBar*XmCascadeButton.fontList:      -*-helvetica-bold-r-normal-*-12-*-*-*-*-*-iso8859-1",
    "*XmMenuShell*XmLabel.fontList:          -*-helvetica-medium-r-normal-*-12-*-*-*-*-*-iso8859-1",
    "*MenuPopup*background:                  #d9d9d9",
    "*optionMenu*fontList:                   -*-helvetica-medium-r-normal-*-12-*-*-*-*-*-iso8859-1",
    "*optionMenu*marginHeight:               0",
    "*option_Menu*fontList:                  -*-helvetica-medium-r-normal-*-12-*-*-*-*-*-iso8859-1",
    "*option_Menu*marginHeight:              0",
    "*option_menu*fontList:                  -*-helvetica-medium-r-normal-*-12-*-*-*-*-*-iso8859-1",
    "*option_menu*marginHeight:              0",
    "*optionmenu*fontList:                   -*-helvetica-medium-r-normal-*-12-*-*-*-*-*-iso8859-1",
    "*optionmenu*marginHeight:               0",
    "*XmDrawingArea.background:              #90abb1",
    "*XmScale.fontList:                      -*-helvetica-medium-r-normal-*-12-*-*-*-*-*-iso8859-1",
    "*XmScale.highlightThickness:            0",
    "*XmSeparator.shadowThickness:           2",
    "*XmSeparatorGadget.shadowThickness:     2",
    "*MyComboBox.arrowColor:                 #707070",
    "*MyComboBox.background:                 #d3b5b5",
    "*MyComboBox.fontList:                   -*-helvetica-medium-r-normal-*-12-*-*-*-*-*-iso8859-1",
    "*MyProgressBar.barColor:                #707070",
    "*MyProgressBar.fontList:                -*-helvetica-medium-r-normal-*-12-*-*-*-*-*-iso8859-1",
    "*MyStatusBar.fontList:                  -*-helvetica-medium-r-normal-*-10-*-*-*-*-*-iso8859-1",
    "*MyTreeView.selectBackground:           Blue",
    "*MyTreeView.selectForeground:           White",
    "*MyTreeView.fontList:                   -*-helvetica-medium-r-normal-*-12-*-*-*-*-*-iso8859-1",
    "*MyTreeView.background:                 White",
    "*XmForm.background:                     #d9d9d9",
    "*XmBulletinBoard.background:            #d9d9d9",
    "*XmMainWindow.background:               #d9d9d9",
    "*XmScrolledWindow.background:           #d9d9d9",
    "*XmPanedWindow.background:              #d9d9d9",
    "*XmMessageBox*fontList:                 -*-helvetica-medium-r-normal-*-12-*-*-*-*-*-iso8859-1",
    "*XmSelectionBox*fontList:               -*-helvetica-medium-r-normal-*-12-*-*-*-*-*-iso8859-1",
    "*XmMenuShell*fontList:                  -*-helvetica-medium-r-normal-*-12-*-*-*-*-*-iso8859-1",
    "*XmText.foreground:                     Black",
    "*XmTextField.foreground:                Black",
    "*XmToggleButton.indicatorSize:          14",
    "*XmToggleButtonGadget.indicatorSize:    14",
    "Quilla*QuillFormat*label.fontList: -*-fixed-medium-r-normal-*-13-*-*-*-*-*-iso8859-1",
    "Quilla*QuillFormat*scrolledList.fontList: -*-fixed-medium-r-normal-*-13-*-*-*-*-*-iso8859-1",
    "Quilla*QuillOption*PFileTypes*label.fontList: -*-fixed-medium-r-normal-*-13-*-*-*-*-*-iso8859-1",
    "Quilla*QuillOption*PFileTypes*scrolledList.fontList: -*-fixed-medium-r-normal-*-13-*-*-*-*-*-iso8859-1",
    "Quilla*QuillOption*PCache*label.fontList: -*-fixed-medium-r-normal-*-13-*-*-*-*-*-iso8859-1",
    "Quilla*QuillOption*PCache*scrolledList.fontList: -*-fixed-medium-r-normal-*-13-*-*-*-*-*-iso8859-1",
    "Quilla*QuillOption*PCache*tbCache.fontList: -*-helvetica-medium-r-normal-*-12-*-*-*-*-*-iso8859-1",
    "Quilla*QuillAbout*labelEmail.foreground: Blue",
    "Quilla*QuillAbout*labelUrl.foreground: Blue",
    "Quilla*BrowseFilter.background: #d3b5b5",
    "Quilla*BubbleText.background: LightYellow",
    "Quilla*BubbleText.alignment: XmALIGNMENT_BEGINNING",
    "Quilla*BubbleText.fontList: -*-helvetica-medium-r-normal-*-10-*-*-*-*-*-iso8859-1",
    "Quilla*ButtonBubbleText.background: LightYellow",
    "Quilla*ButtonBubbleText.fontList: -*-helvetica-medium-r-normal-*-10-*-*-*-*-*-iso8859-1",
    "Quilla*textRename.background: #d3b5b5",
    "Quilla*drawingAreaDump.background: #d3b5b5",
    "Quilla*drawingAreaText.background: #d3b5b5",
    "Quilla*QuillRename*scrolledList.fontList: -*-fixed-medium-r-normal-*-13-*-*-*-*-*-iso8859-1",
    "Quilla*QuillDump*fontList: -*-fixed-medium-r-normal-*-13-*-*-*-*-*-iso8859-1",
    "Quilla*FileSelector*labelType.fontList: -*-helvetica-medium-r-normal-*-10-*-*-*-*-*-iso8859-1",
    "Quilla*FileSelector*labelType.fontList: -*-helvetica-medium-r-normal-*-10-*-*-*-*-*-iso8859-1",
    "Quilla*FileSelector*labelWidth.fontList: -*-helvetica-medium-r-normal-*-10-*-*-*-*-*-iso8859-1",
    "Quilla*FileSelector*labelHeight.fontList: -*-helvetica-medium-r-normal-*-10-*-*-*-*-*-iso8859-1",
    "Quilla*FileSelector*labelBits.fontList: -*-helvetica-medium-r-normal-*-10-*-*-*-*-*-iso8859-1",
    "Quilla*FileSelector*labelPlanes.fontList: -*-helvetica-medium-r-normal-*-10-*-*-*-*-*-iso8859-1",
    "Quilla*FileSelector*labelColors.fontList: -*-helvetica-medium-r-normal-*-10-*-*-*-*-*-iso8859-1",
    "Quilla*FileSelector*labelPreview.background: Black",
    "Quilla*FileSelector*togglePreview.marginWidth: 0",
    "Quilla*FileSelector*togglePreview.marginHeight: 0",
    "Quilla*FileSelector*togglePreview.indicatorSize: 15",
    "Quilla*FileSelector*scrolledList1.fontList: -*-fixed-medium-r-normal-*-13-*-*-*-*-*-iso8859-1",
    "Quilla*FileSelector*scrolledList2.fontList: -*-fixed-medium-r-normal-*-13-*-*-*-*-*-iso8859-1",
    "Quilla*FileSelector*menuPopup.background: gray85",
    "Quilla*FileSelector*comboBox.fontList: -*-helvetica-medium-o-normal-*-12-*-*-*-*-*-iso8859-1",
    "Quilla*QuillView*labelInfo.fontList: -*-helvetica-medium-r-normal-*-10-*-*-*-*-*-iso8859-1",
    "Quilla*ColorPickerText.background: LightYellow",
    "Quilla*ColorPickerText.fontList: -*-fixed-medium-r-normal-*-13-*-*-*-*-*-iso8859-1",
    "Quilla*Browser*drawingAreaDump.background: #d3b5b5",
    "Quilla*Browser*iconView.background: White",
    "Quilla*Browser*iconView.fontList: -*-helvetica-medium-r-normal-*-10-*-*-*-*-*-iso8859-1",
    "Quilla*QuillBook*scrolledList.fontList: -*-fixed-medium-r-normal-*-13-*-*-*-*-*-iso8859-1",
    "Quilla*QuillView*drawingArea.background: #90abb1",
    "Quilla*QuillView*labelInfo.alignment: XmALIGNMENT_BEGINNING",
    "Quilla*QuillAbout*label1.fontList: -*-helvetica-bold-r-normal-*-12-*-*-*-*-*-iso8859-1",
    "Quilla*QuillAbout*label2.fontList: -*-helvetica-bold-r-normal-*-12-*-*-*-*-*-iso8859-1",
    "Quilla*QuillProgress*label.fontList: -*-helvetica-medium-r-normal-*-12-*-*-*-*-*-iso8859-1",
    "Quilla*QuillSlide*background: Black",
    "Quilla*QuillInit*form.width: 400",
    "Quilla*QuillInit*form.height: 60",
    "Quilla*QuillConfirm*fontList: -*-helvetica-medium-r-normal-*-12-*-*-*-*-*-iso8859-1",
    nullptr,
};

const char *const *FallbackResources() { return kFallbackResources; }

int FallbackResourceCount() { return static_cast<int>(sizeof kFallbackResources / sizeof *kFallbackResources) - 1; }

}  // namespace quilla
