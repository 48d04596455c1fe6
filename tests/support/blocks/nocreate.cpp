// Loads like a plug-in but exports no CreateBlock.
#include <zelk/Export.h>

ZELK_PLUGIN int CreateNothing() {
  return 0;
}
