// tee: one input to every linked output, as links are one to one.
//
// Each output may have a format of its own. A frame is sent on when all outputs have taken the one
// before.
#include "common/Log.h"
#include "common/PassThrough.h"

namespace {

constexpr char LOG_TAG[] = "blocks/tee";

}  // namespace

ZELK_PLUGIN zelk::Block* CreateBlock(bool first, bool last, const std::vector<std::string>& args) {
  if (!args.empty()) {
    LOG_E("tee takes no words, got %zu, first \"%s\"", args.size(), args[0].c_str());
    return nullptr;
  }
  return new zelk::blocks::PassThrough(LOG_TAG, first, last, zelk::MAX_EPS);
}
