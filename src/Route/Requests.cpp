// The public operations: each packs one action, hands it to the route thread and waits.
#include "Log.h"
#include "Route/RouteImpl.h"

namespace zelk {

static constexpr char LOG_TAG[] = "src/Route";

Route::~Route() = default;

void Route::Callbacks::OnStarted() {}
void Route::Callbacks::OnStopped(StopReason) {}
void Route::Callbacks::OnExit() {}
Route::Callbacks::~Callbacks() = default;

Block* RouteImpl::NewBlock(const char* soFileName, bool first, bool last,
                           const std::vector<std::string>& args) {
  if (soFileName == nullptr) {
    LOG_E("%s: so file name is nullptr", name.c_str());
    return nullptr;
  }
  Block* block = nullptr;
  Route::Action action;
  action.type = NEW_BLOCK;
  action.newBlock.soFileName = soFileName;
  action.newBlock.first = first;
  action.newBlock.last = last;
  action.newBlock.args = &args;
  action.newBlock.block = &block;
  ExecuteActions(&action, 1);
  return block;
}

Link* RouteImpl::NewLink(unsigned int rate, SampleFormat format, unsigned int channels,
                         long samplesPerFrame, Block* source, unsigned long sourceBlkOutEpIdx,
                         Block* sink, unsigned long sinkBlkInEpIdx) {
  if (source == nullptr) {
    LOG_E("%s: Source block is nullptr", name.c_str());
    return nullptr;
  }
  if (sink == nullptr) {
    LOG_E("%s: Sink block is nullptr", name.c_str());
    return nullptr;
  }
  if (!EndpointsExist(sourceBlkOutEpIdx, sinkBlkInEpIdx)) return nullptr;
  Route::Action action;
  action.type = NEW_LINK;
  action.newLink.rate = rate;
  action.newLink.format = format;
  action.newLink.channels = channels;
  action.newLink.samplesPerFrame = samplesPerFrame;
  action.newLink.source = &source;
  action.newLink.sourceBlkOutEpIdx = sourceBlkOutEpIdx;
  action.newLink.sink = &sink;
  action.newLink.sinkBlkInEpIdx = sinkBlkInEpIdx;
  ExecuteActions(&action, 1);
  return action.newLink.link;
}

bool RouteImpl::EndpointsExist(unsigned long out, unsigned long in) const {
  // A part of NewLink, whoever asks; the records carry that name.
  if (out >= MAX_EPS) {
    ZELK_LOG_AS('E', "NewLink", "%s: Invalid source block output endpoint index %zu", name.c_str(),
                out);
    return false;
  }
  if (in >= MAX_EPS) {
    ZELK_LOG_AS('E', "NewLink", "%s: Invalid sink block input endpoint index %zu", name.c_str(),
                in);
    return false;
  }
  return true;
}

int RouteImpl::Start() {
  Route::Action action;
  action.type = START;
  action.start.ret = -20;
  ExecuteActions(&action, 1);
  return action.start.ret;
}

int RouteImpl::SetParameter(Block* block, unsigned int paramId,
                            const std::vector<std::string>& params) {
  Route::Action action;
  action.type = SET_PARAMETER;
  action.setParameter.block = block;
  action.setParameter.paramId = paramId;
  action.setParameter.params = &params;
  action.setParameter.ret = -20;
  ExecuteActions(&action, 1);
  return action.setParameter.ret;
}

int RouteImpl::GetParameter(Block* block, unsigned int paramId, std::vector<std::string>& params) {
  Route::Action action;
  action.type = GET_PARAMETER;
  action.getParameter.block = block;
  action.getParameter.paramId = paramId;
  action.getParameter.params = &params;
  action.getParameter.ret = -20;
  ExecuteActions(&action, 1);
  return action.getParameter.ret;
}

int RouteImpl::Reset(Block* block) {
  Route::Action action;
  action.type = RESET;
  action.reset.block = block;
  action.reset.ret = -20;
  ExecuteActions(&action, 1);
  return action.reset.ret;
}

int RouteImpl::Stop() {
  Route::Action action;
  action.type = STOP;
  action.stop.ret = -20;
  ExecuteActions(&action, 1);
  return action.stop.ret;
}

int RouteImpl::Delete(void* instance) {
  Route::Action action;
  action.type = DELETE;
  action.del.instance = instance;
  action.del.ret = -20;
  ExecuteActions(&action, 1);
  return action.del.ret;
}

int RouteImpl::DeleteAll() {
  Route::Action action;
  action.type = DELETE_ALL;
  action.deleteAll.ret = -20;
  ExecuteActions(&action, 1);
  return action.deleteAll.ret;
}

void RouteImpl::SetDump(const char* path) {
  Route::Action action;
  action.type = SET_DUMP;
  action.setDump.path = path;
  ExecuteActions(&action, 1);
}

void RouteImpl::Exit() {
  Route::Action action;
  action.type = EXIT;
  ExecuteActions(&action, 1);
}

void RouteImpl::ExecuteActions(Route::Action* actions, unsigned long count) {
  Submit(actions, count, nullptr);
}

void RouteImpl::ExecuteNamed(Route::Action& action, NamedObjects& names) {
  if (action.type == NEW_LINK &&
      !EndpointsExist(action.newLink.sourceBlkOutEpIdx, action.newLink.sinkBlkInEpIdx)) {
    return;
  }
  Submit(&action, 1, &names);
}

}  // namespace zelk
