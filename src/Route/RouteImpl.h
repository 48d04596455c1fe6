// A route: its graph, its queue of actions, and the thread that owns both.
#pragma once

#include <zelk/Block.h>
#include <zelk/Route.h>

#include <atomic>
#include <condition_variable>
#include <list>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include "Link/Link.h"
#include "Mutex.h"
#include "Route/NumberPool.h"
#include "Route/RouteView.h"
#include "Route/Wave.h"

namespace zelk {

/// Blocks or links that a request gives by name instead of by pointer. The names are resolved on
/// the route thread, right before the action executes: what they named when the request was made
/// may be gone by then.
struct NamedObjects {
  std::string first;    ///< NEW_LINK: the source; DELETE: a block or link; else the block
  std::string second;   ///< NEW_LINK: the sink
  std::string created;  ///< out: the name of the new block or link
};

class RouteImpl final : public Route {
 public:
  using Status = RouteStatus;

  /// Starts the route's thread. Throws what its creation throws. [any-thread]
  RouteImpl(const std::string& name, Route::Callbacks* callbacks, const std::string& dumpPath);

  /// Stops the route, deletes its graph, ends its thread, and closes its plug-ins. Not on the
  /// route's own thread.
  ~RouteImpl() override;

  // Requests: packed as actions, executed by the route thread, waited for. [any-thread]

  Block* NewBlock(const char* soFileName, bool first, bool last,
                  const std::vector<std::string>& args) override;
  Link* NewLink(unsigned int rate, SampleFormat format, unsigned int channels, long samplesPerFrame,
                Block* source, unsigned long sourceBlkOutEpIdx, Block* sink,
                unsigned long sinkBlkInEpIdx) override;
  int Start() override;
  int SetParameter(Block* block, unsigned int paramId,
                   const std::vector<std::string>& params) override;
  int GetParameter(Block* block, unsigned int paramId, std::vector<std::string>& params) override;
  int Reset(Block* block) override;
  int Stop() override;
  int Delete(void* instance) override;
  int DeleteAll() override;
  void SetDump(const char* path) override;
  void ExecuteActions(Route::Action* actions, unsigned long count) override;
  void Exit();

  /// Executes one action whose blocks or links are given by name. An action whose names no longer
  /// resolve, or whose endpoints cannot exist, is not executed and keeps its preset results.
  void ExecuteNamed(Route::Action& action, NamedObjects& names);

  // Looking. [any-thread]

  const std::string& Name() const { return name; }
  const std::shared_ptr<RouteView>& View() const { return view; }

  /// The block or link of that name, as of the last edit, or null. An identity to pass on;
  /// following it is for the route thread.
  void* FindInstance(const std::string& name) const;

  /// Whether the caller is this route's thread, which must not wait for itself.
  bool OnOwnThread() const;

 private:
  struct ActionPlus;
  friend void MainThread(RouteImpl* route);

  bool EndpointsExist(unsigned long out, unsigned long in) const;
  void Submit(Route::Action* actions, unsigned long count, NamedObjects* names)
      ZELK_EXCLUDES(mutex);
  void SubmitBatch(std::list<std::shared_ptr<ActionPlus>>& batch) ZELK_EXCLUDES(mutex);

  // The queue (ActionQueue.cpp). [route-thread & mutex held]
  void ProcessActions() ZELK_REQUIRES(mutex);
  void Execute(const ActionPlus& entry);
  void ExecuteNewBlock(Route::Action& action);
  void ExecuteNewLink(Route::Action& action);
  void ExecuteSetParameter(Route::Action& action);
  void ExecuteGetParameter(Route::Action& action);
  bool Resolve(const ActionPlus& entry);

  // The loop (FrameLoop.cpp, StartStop.cpp). [route-thread]
  int MainThreadLoop();
  int Preprocess() ZELK_EXCLUDES(mutex);
  void WaitForActions(Lock& lock) ZELK_REQUIRES(mutex);
  void ProcessFrame() ZELK_EXCLUDES(mutex);
  enum class Verdict { GoOn, Error, EndOfFile, FadedOut };
  void PlanFrame();
  Verdict RunPlan();
  Verdict LeavePlan(Block* const* wave, Block* const* block, long ret);
  Verdict RunWave(Block* const* block, Block* const* end);
  long RunBlock(Block* block);
  void ScheduleDownstream(const Block& block);
  Verdict TakeNoFrame(Block* block, long ret);
  void CommitDone();
  void EndFrame(Verdict verdict);
  int Start_l();
  int Stop_l(Route::StopReason reason);
  void IntegrityCheck(bool& ok);

  // Graph edits (GraphEdit.cpp). [route-thread & mutex held]
  Block* NewBlock_l(const std::string& soFileName, bool first, bool last,
                    const std::vector<std::string>& args);
  bool NameBlock(Block* block, const std::string& baseName);
  void AddBlock(Block* block);
  void RemoveBlock(Block* block);
  Link* NewLink_l(unsigned int rate, SampleFormat format, unsigned int channels,
                  long samplesPerFrame, Block* source, unsigned long sourceBlkOutEpIdx, Block* sink,
                  unsigned long sinkBlkInEpIdx);
  int Delete_l(void* instance);
  void DeleteLink(Link* link);
  void DeleteBlock(Block* block);
  int DeleteAll_l();
  int Reset_l(Block* block);
  int SetParam_l(Block* block, unsigned int paramId, const std::vector<std::string>& params);
  int GetParam_l(Block* block, unsigned int paramId, std::vector<std::string>& params);
  void SetDump_l(const char* path);
  int Exit_l();
  bool Contains(const Block* block) const;
  Block* FindBlock(const std::string& blockName) const;
  Link* FindLink(const std::string& linkName) const;
  void ReleaseName(const std::string& objectName);

  // What the console sees (Publish.cpp). [route-thread]
  void GraphEdited(const Block* touched);
  void GraphEdited();
  void PublishGraph();
  void PublishDescriptors();

  template <typename Call>
  void Callback(const char* which, Call&& call);

  const std::string name;

  // Route thread only.
  std::string dumpPath;
  std::set<Block*> blocks;
  std::set<Block*> firstBlocks;
  std::set<Block*> lastBlocks;
  std::set<Link*> links;
  std::vector<void*> handles;

  // Written by the route thread, read anywhere: status, okFrames, errorFrames, the graph's view.
  const std::shared_ptr<RouteView> view;

  // Set at the end of construction. The entries of the destructor's own actions are made there: a
  // route must be able to end when memory is short.
  std::list<std::shared_ptr<ActionPlus>> farewell;
  std::shared_ptr<std::thread> thread;

  Mutex mutex;
  std::list<std::shared_ptr<ActionPlus>> pendingActions ZELK_GUARDED_BY(mutex);
  std::condition_variable cond;

  // Whether `pendingActions` holds any; changed with the mutex held, read by the route thread
  // without.
  std::atomic<bool> actionsWait{false};

  // Constant after construction.
  Route::Callbacks* const callbacks;

  // Route thread only: names in use by prefix, the views of unchanged blocks, and the waves of a
  // frame, with room for all so that a frame does not allocate.
  std::unordered_map<std::string, NumberPool> numbers;
  std::map<const Block*, std::shared_ptr<const BlockView>> blockViews;
  bool edited = false;      // since the graph was published
  bool graphOk = false;     // the graph passed the integrity check and was not edited since
  bool startCheck = false;  // a block may wait to be started
  static constexpr std::size_t AHEAD = 4;             // places in the plan: two blocks of a chain
  static constexpr std::size_t PLAN_END = 1 + AHEAD;  // nulls: an empty wave, and what AHEAD sees
  std::vector<Block*> plan;  // waves, each with a null behind it, then PLAN_END nulls
  Wave beyondPlan;           // the wave that the plan has no room for
  Wave current;              // the wave that runs
  Wave next;
  Wave done;  // what the running one has to commit
};

}  // namespace zelk
