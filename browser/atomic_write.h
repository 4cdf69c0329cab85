// The whole-file writer lives in core/, where every folder can use it.
#ifndef QUILLA_BROWSER_ATOMIC_WRITE_H
#define QUILLA_BROWSER_ATOMIC_WRITE_H

#include "core/atomic_write.h"

#endif
