/* MyStatusBar: a row of text parts along the bottom of a window. */
#ifndef QUILLA_WIDGETS_MYSTATUSBAR_H
#define QUILLA_WIDGETS_MYSTATUSBAR_H

#include <Xm/Xm.h>

#ifdef __cplusplus
extern "C" {
#endif

extern WidgetClass myStatusBarWidgetClass;

Widget MyCreateStatusBar(Widget parent, const char *name, ArgList args, Cardinal n);
void MyStatusBarSetNumberOfParts(Widget w, int count);
/* Text form and value form; both ignored unless realised and 0 <= part < count. */
void MyStatusBarSetText(Widget w, int part, XmString text, int value);
void MyStatusBarSetValue(Widget w, int part, int value);
/* For tests: the part count, a part's first value and its text (a copy, or NULL). */
int MyStatusBarGetNumberOfParts(Widget w);
int MyStatusBarGetValue(Widget w, int part);
XmString MyStatusBarGetText(Widget w, int part);

#ifdef __cplusplus
}
#endif
#endif
