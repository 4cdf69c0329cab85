// The view commands options, properties, describe and the small dialogs.
#include "view/view_hooks_x.h"

namespace quilla {

bool RunInfoCommand(Widget, Widget, const char *) { return false; }

}  // namespace quilla
