/* MyProgressBar: a bar with a centred percentage label. */
#ifndef QUILLA_WIDGETS_MYPROGRESSBAR_H
#define QUILLA_WIDGETS_MYPROGRESSBAR_H

#include <Xm/Xm.h>

#ifdef __cplusplus
extern "C" {
#endif

extern WidgetClass myProgressBarWidgetClass;

#define MyNbarColor "barColor"
#define MyCBarColor "BarColor"

Widget MyCreateProgressBar(Widget parent, const char *name, ArgList args, Cardinal n);
/* Stores minimum, maximum and value, replaces the label (NULL gives an empty
 * one) and redraws when realised. */
void MyProgressBarSetComponents(Widget w, XmString label, int minimum, int maximum, int value);
/* value + 1 (not above the maximum); the label becomes "%d%%" when the
 * percentage (value*100)/(maximum-minimum+1) changed. */
void MyProgressBarStepIt(Widget w);
/* For tests: the current value and the last percentage shown. */
int MyProgressBarGetValue(Widget w);
int MyProgressBarGetPercent(Widget w);
long MyProgressBarRedrawCount(Widget w);

#ifdef __cplusplus
}
#endif
#endif
