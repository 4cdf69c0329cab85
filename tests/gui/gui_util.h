// Helpers shared by the GUI tests.
#ifndef QUILLA_TESTS_GUI_UTIL_H
#define QUILLA_TESTS_GUI_UTIL_H

#include <Xm/Xm.h>

#include <string>

namespace guitest {

// The text of a compound string, separators as "\n".
inline std::string XmText(XmString s) {
  XmParseTable table = reinterpret_cast<XmParseTable>(XtMalloc(sizeof(XmParseMapping)));
  XmString sep = XmStringSeparatorCreate();
  Arg args[3];
  XtSetArg(args[0], XmNincludeStatus, XmINSERT);
  XtSetArg(args[1], XmNsubstitute, sep);
  XtSetArg(args[2], XmNpattern, const_cast<char *>("\n"));
  table[0] = XmParseMappingCreate(args, 3);
  XmStringFree(sep);
  char *t = static_cast<char *>(XmStringUnparse(s, nullptr, XmCHARSET_TEXT, XmCHARSET_TEXT, table, 1, XmOUTPUT_ALL));
  std::string out = t ? t : "";
  XtFree(t);
  XmParseTableFree(table, 1);
  return out;
}

// The label string of a widget found by name under `root`.
inline std::string LabelText(Widget root, const char *name) {
  Widget w = XtNameToWidget(root, name);
  if (!w) return "<no " + std::string(name) + ">";
  XmString s = nullptr;
  XtVaGetValues(w, XmNlabelString, &s, nullptr);
  std::string out = XmText(s);
  XmStringFree(s);
  return out;
}

}  // namespace guitest

#endif
