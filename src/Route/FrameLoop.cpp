// The route thread: between two frames it serves the queue, then it pushes the next frame through
// the graph in waves.
#include <bit>
#include <utility>

#include "Block/Commit.h"
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

namespace {

const char* Label(bool isFirst, bool isLast) {
  static constexpr const char* labels[2][2] = {{"", "(last) "}, {"(first) ", "(first) "}};
  return labels[isFirst][isLast];
}

}  // namespace

// What the waves are as long as every block is done with output: worked out once per edit instead
// of in every frame. A frame that takes another turn leaves the plan there.
void RouteImpl::PlanFrame() {
  plan.clear();
  next.Clear();
  for (Block* block : firstBlocks)
    next.Add(block);
  // Rings, and blocks that are called again, may need more room than there is.
  while (!next.IsEmpty() && plan.size() + next.Size() + 1 + PLAN_END <= plan.capacity()) {
    plan.insert(plan.end(), next.begin(), next.end());
    plan.push_back(nullptr);
    std::swap(current, next);
    next.Clear();
    for (const Block* block : current)
      ScheduleDownstream(*block);
  }
  plan.insert(plan.end(), PLAN_END, nullptr);
  std::swap(beyondPlan, next);
}

void RouteImpl::ProcessFrame() {
  next.Clear();
  Verdict verdict = RunPlan();
  while (verdict == Verdict::GoOn && !next.IsEmpty()) {
    std::swap(current, next);
    next.Clear();
    done.Clear();
    verdict = RunWave(current.begin(), current.end());
    CommitDone();
  }
  EndFrame(verdict);
}

// Leaves in `next` what the plan does not hold of this frame. Large graphs do not fit the nearest
// cache, and only the plan knows early which block is needed soon.
inline RouteImpl::Verdict RouteImpl::RunPlan() {
  Block* const* wave = plan.data();
  while (*wave != nullptr) {
    Block* const* block = wave;
    for (; *block != nullptr; ++block) {
      if (const Block* soon = block[AHEAD]) soon->Prefetch();
      const long ret = RunBlock(*block);
      if (ret < 0) return LeavePlan(wave, block, ret);
    }
    for (; wave != block; ++wave)
      (*wave)->Commit();
    ++wave;
  }
  for (Block* block : beyondPlan)
    next.Append(block);
  return Verdict::GoOn;
}

// Goes on as if the wave had not been planned, from the block that answered `ret`.
RouteImpl::Verdict RouteImpl::LeavePlan(Block* const* wave, Block* const* block, long ret) {
  done.Clear();
  for (; wave != block; ++wave) {
    done.Append(*wave);
    ScheduleDownstream(**wave);
  }
  Verdict verdict = TakeNoFrame(*block, ret);
  Block* const* const rest = ++block;
  while (*block != nullptr)
    ++block;
  if (verdict == Verdict::GoOn) verdict = RunWave(rest, block);
  CommitDone();
  return verdict;
}

RouteImpl::Verdict RouteImpl::RunWave(Block* const* block, Block* const* end) {
  for (; block != end; ++block) {
    const long ret = RunBlock(*block);
    if (ret < 0) {
      const Verdict verdict = TakeNoFrame(*block, ret);
      if (verdict != Verdict::GoOn) return verdict;
    } else {
      done.Append(*block);
      ScheduleDownstream(**block);
    }
  }
  return Verdict::GoOn;
}

inline long RouteImpl::RunBlock(Block* block) {
  const long ret = Guarded(
      -20L, [block] { return block->ProcessFrame(); },
      [this, block](const char* what) {
        LOG_LOOP('E', "%s: %s: ProcessFrame threw: %s", name.c_str(), block->nameText, what);
      });
  if (ret >= 0) {
    LOG_LOOP('V', "%s: %s %sis done", name.c_str(), block->nameText,
             Label(block->isFirst, block->isLast));
  }
  return ret;
}

void RouteImpl::ScheduleDownstream(const Block& block) {
  if (block.isLast) return;
  for (std::uint32_t rest = block.activeOuts; rest != 0; rest &= rest - 1) {
    if (const Endpoint* sink = block.outEps[std::countr_zero(rest)].peer) next.Add(sink->block);
  }
}

RouteImpl::Verdict RouteImpl::TakeNoFrame(Block* block, long ret) {
  switch (ret) {
    case FRAME_PENDING:
      LOG_LOOP('V', "%s: %s is pending", name.c_str(), block->nameText);
      next.Add(block);
      return Verdict::GoOn;
    case FRAME_DONE_WITHOUT_OUTPUT:
      LOG_LOOP('V', "%s: %s %sis done without output", name.c_str(), block->nameText,
               Label(block->isFirst, block->isLast));
      done.Append(block);
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
      done.Append(block);
      return Verdict::FadedOut;
    default:
      LOG_LOOP('E', "%s: %s: Process frame failed %d", name.c_str(), block->nameText,
               static_cast<int>(ret));
      Stop_l(FAILURE);
      done.Append(block);  // what the failing block holds is passed on all the same
      return Verdict::Error;
  }
}

void RouteImpl::CommitDone() {
  for (Block* block : done)
    block->Commit();
}

void RouteImpl::EndFrame(Verdict verdict) {
  if (verdict == Verdict::EndOfFile) return;
  const bool error = verdict == Verdict::Error;
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
