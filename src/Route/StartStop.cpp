// Starting and stopping all blocks of a route, and whether its graph may run.
#include "Log.h"
#include "Route/Callback.h"
#include "Route/RouteImpl.h"

namespace zelk {

static constexpr char LOG_TAG[] = "src/Route";

int RouteImpl::Start_l() {
  startCheck = false;
  for (Block* block : blocks) {
    const int ret = block->BaseStart();
    if (ret < 0) {
      LOG_E("%s: Failed to start %s (ret=%d)", name.c_str(), block->name.c_str(), ret);
      startCheck = true;
      return ret;
    }
    if (!block->started) startCheck = true;  // a positive answer: ask again before the next frame
  }
  if (view->status.load(std::memory_order_relaxed) == Status::RUNNING) return 0;
  view->okFrames.store(0, std::memory_order_relaxed);
  view->errorFrames.store(0, std::memory_order_relaxed);
  view->status.store(Status::RUNNING, std::memory_order_relaxed);
  LOG_I("%s: Started", name.c_str());
  Callback("OnStarted", [](Route::Callbacks& client) { client.OnStarted(); });
  LOG_I("%s: Status is RUNNING", name.c_str());
  return 0;
}

int RouteImpl::Stop_l(Route::StopReason reason) {
  if (view->status.load(std::memory_order_relaxed) == Status::STOPPED) return 0;
  LOG_I("%s: Stopping", name.c_str());
  for (Block* block : blocks) {
    const int ret = block->BaseStop();
    if (ret < 0) {
      LOG_E("%s: Failed to stop %s (ret=%d)", name.c_str(), block->name.c_str(), ret);
      return ret;
    }
  }
  PublishDescriptors();
  view->status.store(Status::STOPPED, std::memory_order_relaxed);
  LOG_I("%s: Stopped", name.c_str());
  Callback("OnStopped", [&](Route::Callbacks& client) { client.OnStopped(reason); });
  return 0;
}

void RouteImpl::IntegrityCheck(bool& ok) {
  ok = graphOk;
  if (ok) return;
  if (firstBlocks.empty()) {
    LOG_E("%s: No first block(s)", name.c_str());
    return;
  }
  for (const Block* block : blocks) {
    if (block->activeInEps.empty() && !block->isFirst) {
      LOG_E("%s: %s (who is non-first-block) has no active input endpoint", name.c_str(),
            block->name.c_str());
      return;
    }
    if (block->activeOutEps.empty() && !block->isLast) {
      LOG_E("%s: %s (who is non-last-block) has no active output endpoint", name.c_str(),
            block->name.c_str());
      return;
    }
  }
  PlanFrame();
  ok = graphOk = true;
}

}  // namespace zelk
