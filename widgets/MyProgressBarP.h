/* MyProgressBar: class and instance records. */
#ifndef QUILLA_WIDGETS_MYPROGRESSBARP_H
#define QUILLA_WIDGETS_MYPROGRESSBARP_H

#include <Xm/PrimitiveP.h>

#include "widgets/MyProgressBar.h"

typedef struct {
  int empty;
} MyProgressBarClassPart;

typedef struct _MyProgressBarClassRec {
  CoreClassPart core_class;
  XmPrimitiveClassPart primitive_class;
  MyProgressBarClassPart progress_class;
} MyProgressBarClassRec;

extern MyProgressBarClassRec myProgressBarClassRec;

typedef struct {
  int minimum, maximum, value;
  int last_percent;
  XmString label;
  Pixel bar_color;
  XmFontList font_list;
  GC bar_gc, text_gc;
  long redraws;
} MyProgressBarPart;

typedef struct _MyProgressBarRec {
  CorePart core;
  XmPrimitivePart primitive;
  MyProgressBarPart progress;
} MyProgressBarRec, *MyProgressBarWidget;

#endif
