// The hand-shake between callers and the route thread, and the dispatch of actions.
#include <dlfcn.h>

#include "Block/LiveBlocks.h"
#include "Boundary.h"
#include "Log.h"
#include "Route/Callback.h"
#include "Route/RouteImpl.h"
#include "Thread.h"

namespace zelk {

static constexpr char LOG_TAG[] = "src/Route";

namespace {

const char* ActionName(Route::ActionType type) {
  static constexpr const char* names[] = {"NEW_BLOCK",     "NEW_LINK", "START",   "SET_PARAMETER",
                                          "GET_PARAMETER", "RESET",    "STOP",    "DELETE",
                                          "DELETE_ALL",    "EXIT",     "SET_DUMP"};
  return type <= Route::SET_DUMP ? names[type] : "UNKNOWN";
}

// The route whose thread this is, if any.
thread_local const RouteImpl* threadsRoute = nullptr;

}  // namespace

/// One queued action. The last of a batch carries what wakes its caller, who waits on it with both
/// on its stack.
struct RouteImpl::ActionPlus {
  Route::Action* action = nullptr;
  std::condition_variable* cond = nullptr;
  bool* executed = nullptr;       ///< guarded by the route's mutex
  NamedObjects* names = nullptr;  ///< null when the action has its pointers
};

void MainThread(RouteImpl* route) {
  threadsRoute = route;
  route->MainThreadLoop();
}

bool RouteImpl::OnOwnThread() const {
  return threadsRoute == this;
}

RouteImpl::RouteImpl(const std::string& name_, Route::Callbacks* callbacks_,
                     const std::string& dumpPath_)
    : name(name_),
      dumpPath(dumpPath_),
      view(std::make_shared<RouteView>(name_)),
      callbacks(callbacks_) {
  for (int i = 0; i < 3; ++i)
    farewell.push_back(std::make_shared<ActionPlus>());
  thread = StartThread(MainThread, this);
}

RouteImpl::~RouteImpl() {
  for (const ActionType type : {STOP, DELETE_ALL, EXIT}) {
    Route::Action action;
    action.type = type;
    if (type != EXIT) action.stop.ret = -20;
    std::list<std::shared_ptr<ActionPlus>> batch;
    batch.splice(batch.end(), farewell, farewell.begin());
    batch.front()->action = &action;
    SubmitBatch(batch);
  }
  thread->join();
  for (void* handle : handles)
    dlclose(handle);
  LOG_I("%s: Deleted", name.c_str());
}

void RouteImpl::Submit(Route::Action* actions, unsigned long count, NamedObjects* names) {
  if (actions == nullptr || count == 0) return;
  if (OnOwnThread()) {
    ZELK_LOG_AS('E', "ExecuteActions",
                "%s: Can't execute '%s' for the route's own thread, which would wait for itself",
                name.c_str(), ActionName(actions[0].type));
    return;
  }
  // Built first, so that the route thread is held up for a splice only.
  std::list<std::shared_ptr<ActionPlus>> batch;
  try {
    for (unsigned long i = 0; i < count; ++i) {
      batch.push_back(std::make_shared<ActionPlus>());
      batch.back()->action = &actions[i];
      batch.back()->names = names;
    }
  } catch (const std::bad_alloc&) {
    ZELK_LOG_AS('E', "ExecuteActions", "%s: Out of memory, nothing executed", name.c_str());
    return;
  }
  SubmitBatch(batch);
}

void RouteImpl::SubmitBatch(std::list<std::shared_ptr<ActionPlus>>& batch) {
  std::condition_variable finished;
  bool executed = false;
  batch.back()->cond = &finished;
  batch.back()->executed = &executed;

  Lock lock(mutex);
  pendingActions.splice(pendingActions.end(), batch);
  actionsWait.store(true, std::memory_order_release);
  cond.notify_one();
  while (!executed)
    finished.wait(lock);
}

void RouteImpl::ProcessActions() {
  if (pendingActions.empty()) return;
  while (!pendingActions.empty()) {
    const std::shared_ptr<ActionPlus> entry = pendingActions.front();
    const char* what = ActionName(entry->action->type);
    LOG_D("%s: Processing action '%s'", name.c_str(), what);
    // Memory may run out in the middle of an edit; the edit has undone itself then.
    Guarded([&] { Execute(*entry); },
            [&](const char* why) {
              ZELK_LOG_AS('E', "ProcessActions", "%s: Action '%s' failed: %s", name.c_str(), what,
                          why);
            });
    if (entry->cond != nullptr) {
      // Under the lock: the caller's stack frame is gone as soon as it sees the flag.
      *entry->executed = true;
      entry->cond->notify_one();
    }
    pendingActions.pop_front();
  }
  actionsWait.store(false, std::memory_order_relaxed);
  // Callers resume when the lock is released, so they already find the new graph published.
  Guarded([&] { PublishGraph(); },
          [&](const char* why) {
            ZELK_LOG_AS('E', "ProcessActions", "%s: The console sees an old graph: %s",
                        name.c_str(), why);
          });
  PublishDescriptors();
}

void RouteImpl::Execute(const ActionPlus& entry) {
  Route::Action& action = *entry.action;
  if (entry.names != nullptr && !Resolve(entry)) return;
  switch (action.type) {
    case NEW_BLOCK:
      ExecuteNewBlock(action);
      if (entry.names != nullptr && *action.newBlock.block != nullptr) {
        entry.names->created = (*action.newBlock.block)->name;
      }
      break;
    case NEW_LINK:
      ExecuteNewLink(action);
      if (entry.names != nullptr && action.newLink.link != nullptr) {
        entry.names->created = action.newLink.link->name;
      }
      break;
    case START:
      action.start.ret = Start_l();
      break;
    case SET_PARAMETER:
      ExecuteSetParameter(action);
      break;
    case GET_PARAMETER:
      ExecuteGetParameter(action);
      break;
    case RESET:
      action.reset.ret = Reset_l(action.reset.block);
      break;
    case STOP:
      action.stop.ret = Stop_l(NORMAL);
      break;
    case DELETE:
      action.del.ret = Delete_l(action.del.instance);
      break;
    case DELETE_ALL:
      action.deleteAll.ret = DeleteAll_l();
      break;
    case EXIT:
      Exit_l();
      break;
    case SET_DUMP:
      SetDump_l(action.setDump.path);
      break;
    default:
      ZELK_LOG_AS('E', "ProcessActions", "%s: Unknown action: %s", name.c_str(),
                  ActionName(action.type));
  }
}

bool RouteImpl::Resolve(const ActionPlus& entry) {
  Route::Action& action = *entry.action;
  const NamedObjects& names = *entry.names;
  switch (action.type) {
    case NEW_LINK:
      *action.newLink.source = FindBlock(names.first);
      *action.newLink.sink = FindBlock(names.second);
      return *action.newLink.source != nullptr && *action.newLink.sink != nullptr;
    case SET_PARAMETER:
      return (action.setParameter.block = FindBlock(names.first)) != nullptr;
    case GET_PARAMETER:
      return (action.getParameter.block = FindBlock(names.first)) != nullptr;
    case DELETE:
      action.del.instance = FindBlock(names.first);
      if (action.del.instance == nullptr) action.del.instance = FindLink(names.first);
      return action.del.instance != nullptr;
    default:
      return true;
  }
}

// Actions come from clients as they like: a null where a pointer is needed is refused.

void RouteImpl::ExecuteNewBlock(Route::Action& action) {
  auto& request = action.newBlock;
  Block* block = nullptr;
  if (request.soFileName == nullptr) {
    ZELK_LOG_AS('E', "ProcessActions", "%s: so file name is nullptr", name.c_str());
  } else if (request.args == nullptr || request.block == nullptr) {
    ZELK_LOG_AS('E', "ProcessActions", "%s: A new block needs args and a place to be stored in",
                name.c_str());
  } else {
    *request.block = nullptr;
    block = NewBlock_l(request.soFileName, request.first, request.last, *request.args);
  }
  if (request.block != nullptr) *request.block = block;
}

void RouteImpl::ExecuteNewLink(Route::Action& action) {
  auto& request = action.newLink;
  request.link = nullptr;
  request.link =
      NewLink_l(request.rate, request.format, request.channels, request.samplesPerFrame,
                request.source != nullptr ? *request.source : nullptr, request.sourceBlkOutEpIdx,
                request.sink != nullptr ? *request.sink : nullptr, request.sinkBlkInEpIdx);
}

void RouteImpl::ExecuteSetParameter(Route::Action& action) {
  auto& request = action.setParameter;
  if (request.params == nullptr) {
    ZELK_LOG_AS('E', "ProcessActions", "%s: A parameter needs params", name.c_str());
    request.ret = -20;
    return;
  }
  request.ret = SetParam_l(request.block, request.paramId, *request.params);
}

void RouteImpl::ExecuteGetParameter(Route::Action& action) {
  auto& request = action.getParameter;
  if (request.params == nullptr) {
    ZELK_LOG_AS('E', "ProcessActions", "%s: A parameter needs params", name.c_str());
    request.ret = -20;
    return;
  }
  request.ret = GetParam_l(request.block, request.paramId, *request.params);
}

}  // namespace zelk
