// A source that gives up waiting once and then comes to its end.
#include <zelk/Block.h>

#include <utility>

namespace {

class Late : public zelk::Block {
 public:
  using Block::Block;
  long ProcessFrame() override {
    return std::exchange(waited, true) ? FRAME_END_OF_FILE : FRAME_TIMEOUT;
  }

 private:
  bool waited = false;
};

}  // namespace

ZELK_PLUGIN zelk::Block* CreateBlock(bool first, bool last, const std::vector<std::string>&) {
  return new Late(first, last);
}
