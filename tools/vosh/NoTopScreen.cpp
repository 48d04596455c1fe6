// Where there is no ncurses, `top` prints one report after the other.
#include "Top.h"

namespace vosh {

bool RunTopScreen(const Session&, const TopOptions&, Result&) {
  return false;
}

}  // namespace vosh
