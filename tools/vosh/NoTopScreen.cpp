// Where there is no ncurses, `top` prints one report after the other.
#include "Top.h"

namespace vosh {

bool RunTopScreen(const TopOptions&) {
  return false;
}

}  // namespace vosh
