/* MyStatusBar: class and instance records. */
#ifndef QUILLA_WIDGETS_MYSTATUSBARP_H
#define QUILLA_WIDGETS_MYSTATUSBARP_H

#include <Xm/PrimitiveP.h>

#include "widgets/MyStatusBar.h"

typedef struct {
  int empty;
} MyStatusBarClassPart;

typedef struct _MyStatusBarClassRec {
  CoreClassPart core_class;
  XmPrimitiveClassPart primitive_class;
  MyStatusBarClassPart status_class;
} MyStatusBarClassRec;

extern MyStatusBarClassRec myStatusBarClassRec;

typedef struct {
  XmString text;
  int value;          /* starts at -1; the value form sets it */
  short x, width;     /* from the layout */
  int text_value;     /* the value given with the text */
} MyStatusPart;

typedef struct {
  int count;
  MyStatusPart *parts;
  XmFontList font_list;
  GC text_gc;
} MyStatusBarPart;

typedef struct _MyStatusBarRec {
  CorePart core;
  XmPrimitivePart primitive;
  MyStatusBarPart status;
} MyStatusBarRec, *MyStatusBarWidget;

#endif
