// A block whose code lies in the plug-in itself: it crashes if its file is unloaded too early.
#include <zelk/Block.h>

namespace {

class Resident : public zelk::Block {
 public:
  using Block::Block;
  long ProcessFrame() override { return FRAME_DONE_WITHOUT_OUTPUT; }
};

}  // namespace

ZELK_PLUGIN zelk::Block* CreateBlock(bool first, bool last, const std::vector<std::string>&) {
  return new Resident(first, last);
}
