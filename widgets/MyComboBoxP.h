/* MyComboBox: class and instance records. */
#ifndef QUILLA_WIDGETS_MYCOMBOBOXP_H
#define QUILLA_WIDGETS_MYCOMBOBOXP_H

#include <Xm/PrimitiveP.h>

#include "widgets/MyComboBox.h"

typedef struct {
  int empty;
} MyComboBoxClassPart;

typedef struct _MyComboBoxClassRec {
  CoreClassPart core_class;
  XmPrimitiveClassPart primitive_class;
  MyComboBoxClassPart combo_class;
} MyComboBoxClassRec;

extern MyComboBoxClassRec myComboBoxClassRec;

typedef struct {
  /* resources */
  XmFontList font_list;
  Dimension list_margin_height, list_margin_width, list_spacing;
  int top_item_position, visible_item_count;
  Pixel arrow_color;
  XtCallbackList callback;
  /* private state */
  Widget shell;  /* ComboBoxMenuShell */
  Widget frame;  /* ComboBoxFrame */
  Widget list;   /* ComboBoxList */
  XmString text; /* shown in the field */
  int chosen;    /* the position shown, 0 = none */
  GC text_gc, arrow_gc;
  Window old_focus; /* the keyboard focus before the list popped up */
  int old_revert;
} MyComboBoxPart;

typedef struct _MyComboBoxRec {
  CorePart core;
  XmPrimitivePart primitive;
  MyComboBoxPart combo;
} MyComboBoxRec, *MyComboBoxWidget;

#endif
