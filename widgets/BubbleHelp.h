/* Bubble help: after the pointer has rested on a widget for a moment, a
 * small borderless window below it names what the widget does.  The window
 * holds one label named "BubbleText" (its colours and font come from the
 * resources), never takes the keyboard focus, stays on the screen, and goes
 * away when the pointer leaves, on a click or on a key. */
#ifndef QUILLA_WIDGETS_BUBBLEHELP_H
#define QUILLA_WIDGETS_BUBBLEHELP_H

#include <X11/Intrinsic.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Gives `w` a bubble with `text` (copied); a second call replaces the text,
 * NULL removes the bubble. */
void BubbleHelpAttach(Widget w, const char *text);

/* A function asked each time a bubble is about to show; when it returns
 * False nothing shows (the tool-tip settings).  NULL: always shown. */
void BubbleHelpSetEnabledProc(Boolean (*enabled)(void));

/* The delay before a bubble shows, in milliseconds (default 500). */
void BubbleHelpSetDelay(unsigned long ms);

/* The action DoBubble: "show" (or no parameter) on an Enter event starts
 * the delay for the widget's bubble; "hide" and any other event hide it. */
void BubbleHelpAction(Widget w, XEvent *event, String *params, Cardinal *count);

/* The bubble's shell while it is shown, else NULL (for tests). */
Widget BubbleHelpShown(void);

#ifdef __cplusplus
}
#endif

#endif
