// The route thread: between two frames it serves the queue, then it pushes the next frame through
// the graph in waves.
#include <algorithm>
#include <bit>

#include "Boundary.h"
#include "Log.h"
#include "Route/RouteImpl.h"

namespace zelk {

static constexpr char LOG_TAG[] = "src/Route";

// The frame is a part of the loop, and its records carry the loop's name.
#define LOG_LOOP(level, ...) ZELK_LOG_AS(level, "MainThreadLoop", __VA_ARGS__)

int RouteImpl::MainThreadLoop() {
  for (;;) {
    const int ret = Preprocess();
    if (ret == -2) continue;
    if (ret == 0) {
      ProcessFrame();
    } else if (ret == -20) {
      Stop_l(FAILURE);
    } else {
      return ret;
    }
  }
}

int RouteImpl::Preprocess() {
  // Mostly nothing happens between two frames. A lock taken for nothing would be taken again so
  // soon that callers who have been served could not get it to return.
  if (!actionsWait.load(std::memory_order_acquire) && graphOk && !startCheck &&
      view->status.load(std::memory_order_relaxed) == Status::RUNNING) {
    return 0;
  }
  Lock lock(mutex);
  ProcessActions();
  const Status status = view->status.load(std::memory_order_relaxed);
  switch (status) {
    case Status::RUNNING:
    case Status::BROKEN_RUNNING: {
      bool ok = false;
      IntegrityCheck(ok);
      // While nothing was edited or stopped since the last frame, there is nothing to check.
      if (ok) return startCheck || status != Status::RUNNING ? Start_l() : 0;
      Stop_l(FAILURE);
      view->status.store(Status::BROKEN_RUNNING, std::memory_order_relaxed);
      LOG_I("%s: Status is BROKEN_RUNNING, wait for new actions...", name.c_str());
      WaitForActions(lock);
      return -2;
    }
    case Status::STOPPED:
      LOG_D("%s: Status is STOPPED", name.c_str());
      WaitForActions(lock);
      return -2;
    case Status::EXIT:
      LOG_I("%s: Status is EXIT", name.c_str());
      return -30;
  }
  LOG_E("%s: Unknown route status %d", name.c_str(), static_cast<int>(status));
  return -30;
}

void RouteImpl::WaitForActions(Lock& lock) {
  while (pendingActions.empty())
    cond.wait(lock);
}

void RouteImpl::ProcessFrame() {
  bool endOfFile = false;
  bool error = false;
  current.assign(firstBlocks.begin(), firstBlocks.end());
  while (!current.empty()) {
    const Verdict verdict = RunWave();
    if (verdict != Verdict::GoOn) next.clear();
    if (verdict == Verdict::Error) error = true;
    if (verdict == Verdict::EndOfFile) endOfFile = true;
    for (Block* block : done)
      block->CommitFrame();
    current.swap(next);
  }
  EndFrame(endOfFile, error);
}

RouteImpl::Verdict RouteImpl::RunWave() {
  next.clear();
  done.clear();
  for (Block* block : current) {
    const Verdict verdict = RunBlock(block);
    if (verdict != Verdict::GoOn) return verdict;
  }
  return Verdict::GoOn;
}

// A wave is a set in address order. Most blocks arrive in that order already, once each.
inline void RouteImpl::Schedule(Block* block) {
  if (next.empty() || std::less<>()(next.back(), block)) {
    next.push_back(block);
  } else {
    ScheduleInOrder(block);
  }
}

void RouteImpl::ScheduleInOrder(Block* block) {
  const auto place = std::lower_bound(next.begin(), next.end(), block, std::less<>());
  if (*place != block) next.insert(place, block);
}

RouteImpl::Verdict RouteImpl::RunBlock(Block* block) {
  const long ret = Guarded(
      -20L, [block] { return block->ProcessFrame(); },
      [this, block](const char* what) {
        LOG_LOOP('E', "%s: %s: ProcessFrame threw: %s", name.c_str(), block->nameText, what);
      });
  const char* label = block->isFirst ? "(first) " : block->isLast ? "(last) " : "";
  if (ret >= 0) {
    LOG_LOOP('V', "%s: %s %sis done", name.c_str(), block->nameText, label);
    done.push_back(block);
    if (!block->isLast) ScheduleDownstream(*block);
    return Verdict::GoOn;
  }
  switch (ret) {
    case FRAME_PENDING:
      LOG_LOOP('V', "%s: %s is pending", name.c_str(), block->nameText);
      Schedule(block);
      return Verdict::GoOn;
    case FRAME_DONE_WITHOUT_OUTPUT:
      LOG_LOOP('V', "%s: %s %sis done without output", name.c_str(), block->nameText, label);
      done.push_back(block);
      return Verdict::GoOn;
    case FRAME_TIMEOUT:
      LOG_LOOP('E', "%s: %s: Process frame timeout", name.c_str(), block->nameText);
      return Verdict::Error;
    case FRAME_END_OF_FILE:
      LOG_LOOP('I', "%s: %s: End of file", name.c_str(), block->nameText);
      Stop_l(END_OF_FILE);
      return Verdict::EndOfFile;
    case FRAME_FADED_OUT:
      LOG_LOOP('I', "%s: %s: Faded out", name.c_str(), block->nameText);
      Stop_l(NORMAL);
      done.push_back(block);
      return Verdict::FadedOut;
    default:
      LOG_LOOP('E', "%s: %s: Process frame failed %d", name.c_str(), block->nameText,
               static_cast<int>(ret));
      Stop_l(FAILURE);
      done.push_back(block);  // what the failing block holds is passed on all the same
      return Verdict::Error;
  }
}

void RouteImpl::ScheduleDownstream(const Block& block) {
  for (std::uint32_t rest = block.activeOuts; rest != 0; rest &= rest - 1) {
    if (const Endpoint* sink = block.outEps[std::countr_zero(rest)].peer) Schedule(sink->block);
  }
}

void RouteImpl::EndFrame(bool endOfFile, bool error) {
  if (endOfFile) return;
  std::atomic<std::uint64_t>& counter = error ? view->errorFrames : view->okFrames;
  counter.store(counter.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
  if (error) {
    for (Block* block : blocks) {
      Guarded([&] { block->Reset(); },
              [&](const char* what) {
                LOG_LOOP('E', "%s: %s: Reset threw: %s", name.c_str(), block->nameText, what);
              });
    }
  }
  const unsigned long long ok = view->okFrames.load(std::memory_order_relaxed);
  const unsigned long long errors = view->errorFrames.load(std::memory_order_relaxed);
  LOG_LOOP('V', "%s: %llu frame%s processed OK, %llu error frame%s", name.c_str(), ok,
           ok > 1 ? "s" : "", errors, errors > 1 ? "s" : "");
}

}  // namespace zelk
