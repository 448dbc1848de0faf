// The radio library's mutex. Here it is only ever locked exclusively.
#pragma once

#include "mutex.h"

namespace qtimutex {

class QtiSharedMutex : public Mutex {};

}  // namespace qtimutex
