/* MyComboBox: a field showing the chosen item; activating it pops up a list
 * of the items below the field. */
#ifndef QUILLA_WIDGETS_MYCOMBOBOX_H
#define QUILLA_WIDGETS_MYCOMBOBOX_H

#include <Xm/Xm.h>

#ifdef __cplusplus
extern "C" {
#endif

extern WidgetClass myComboBoxWidgetClass;

/* Resources of the combo box; the list ones are handed to the pop-up list
 * (as marginHeight, marginWidth, spacing, topItemPosition, visibleItemCount,
 * fontList).  XmNcallback is the list of MyComboBoxCallbackStruct callbacks. */
#define MyNarrowColor "arrowColor"
#define MyCArrowColor "ArrowColor"
#define MyNlistMarginHeight "listMarginHeight"
#define MyNlistMarginWidth "listMarginWidth"
#define MyNlistSpacing "listSpacing"
#define MyNtopItemPosition "topItemPosition"
#define MyNvisibleItemCount "visibleItemCount"

/* The reason of the callback: an item was chosen. */
#define MyCR_COMBOBOX_SELECT 128

typedef struct {
  int reason;       /* MyCR_COMBOBOX_SELECT */
  XEvent *event;    /* the event that chose, or NULL (chosen by a call) */
  XmString item;    /* the chosen item, owned by the widget */
  int position;     /* its position, from 1 */
} MyComboBoxCallbackStruct;

/* The list's width beyond the widest item's text when it pops up. */
#define MyComboBoxListExtraWidth 42

Widget MyCreateComboBox(Widget parent, const char *name, ArgList args, Cardinal n);

/* Adds an item at `position` (from 1; 0 = at the end). */
void MyComboBoxAddItem(Widget w, XmString item, int position);
/* Empties the list; the field shows nothing and no position is selected. */
void MyComboBoxDeleteAllItems(Widget w);
/* Makes `position` the list's top item. */
void MyComboBoxSetItem(Widget w, int position);
/* Clears the selection, selects the item (callbacks are called) and shows it. */
void MyComboBoxSelectItem(Widget w, XmString item);
/* Clears the selection and selects `position` (callbacks are called). */
void MyComboBoxSelectPos(Widget w, int position);
/* The first selected position (from 1), or 0 when none. */
int MyComboBoxGetSelectedPos(Widget w);

/* The number of items. */
int MyComboBoxGetItemCount(Widget w);
/* A copy of the text shown in the field (free it with XmStringFree). */
XmString MyComboBoxGetText(Widget w);
/* Takes the pop-up list down without a choice, when it is up. */
void MyComboBoxPopdown(Widget w);
/* Whether the pop-up list is up. */
Boolean MyComboBoxIsPoppedUp(Widget w);

#ifdef __cplusplus
}
#endif
#endif
