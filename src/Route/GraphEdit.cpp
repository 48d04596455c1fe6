// Edits of the graph and the settings of its blocks. All run on the route thread, inside an action.
#include <algorithm>
#include <charconv>

#include "Block/LiveBlocks.h"
#include "Boundary.h"
#include "Log.h"
#include "Route/Callback.h"
#include "Route/PluginLoader.h"
#include "Route/RouteImpl.h"

namespace zelk {

static constexpr char LOG_TAG[] = "src/Route";

namespace {

// By doubling: a reserve of exactly what is needed would copy all there is at every block.
template <typename T>
void MakeRoomFor(std::vector<T>& vector, std::size_t size) {
  if (vector.capacity() < size) vector.reserve(std::max(size, 2 * vector.capacity()));
}

}  // namespace

bool RouteImpl::Contains(const Block* block) const {
  return blocks.count(const_cast<Block*>(block)) != 0;
}

Block* RouteImpl::NewBlock_l(const std::string& soFileName, bool first, bool last,
                             const std::vector<std::string>& args) {
  LOG_D("%s: soFileName=%s, first=%d, last=%d", name.c_str(), soFileName.c_str(), first, last);
  for (std::size_t i = 0; i < args.size(); ++i) {
    LOG_D("%s: args[%zu]=%s", name.c_str(), i, args[i].c_str());
  }
  const std::string baseName = PluginBaseName(soFileName);
  if (baseName.empty()) {
    LOG_E("%s: Invalid so file name", name.c_str());
    return nullptr;
  }
  Plugin plugin(name, soFileName);
  if (plugin.CreateBlock() == nullptr) return nullptr;

  Block* created = Guarded<Block*>(
      nullptr, [&] { return plugin.CreateBlock()(first, last, args); },
      [&](const char* what) {
        ZELK_LOG_AS('E', "NewBlock_l", "%s: CreateBlock() threw: %s", name.c_str(), what);
      });
  if (created == nullptr) {
    LOG_E("%s: CreateBlock() returns nullptr", name.c_str());
    return nullptr;
  }
  std::unique_ptr<Block> block(created);
  MakeRoomFor(handles, handles.size() + 1);
  if (!NameBlock(created, baseName)) {
    LOG_E("%s: Unable to give a name to this block", name.c_str());
    static_cast<void>(block.release());
    plugin.Release();
    return nullptr;
  }
  AddBlock(created);
  static_cast<void>(block.release());  // the route's from here on
  handles.push_back(plugin.Release());
  return created;
}

bool RouteImpl::NameBlock(Block* block, const std::string& baseName) {
  std::string subname;
  std::string prefix = baseName + "_";
  NumberPool* pool = &numbers[prefix];
  // A block may answer otherwise for every number, so each number is asked for, taken or not.
  for (std::uint64_t n = 0; n < NumberPool::LIMIT; ++n) {
    const char* sub = Guarded<const char*>(
        nullptr, [&] { return block->Subname(); },
        [&](const char* what) {
          ZELK_LOG_AS('E', "NewBlock_l", "%s: Subname() threw: %s", name.c_str(), what);
        });
    if (sub == nullptr) sub = "";
    if (subname.empty() ? *sub != '\0' : subname != sub) {
      subname = sub;
      prefix = subname.empty() ? baseName + "_" : baseName + "_" + subname + "_";
      pool = &numbers[prefix];
    }
    if (!pool->IsFree(n)) continue;
    block->SetName(name, prefix + std::to_string(n), &dumpPath);
    pool->Take(n);
    return true;
  }
  return false;
}

void RouteImpl::AddBlock(Block* block) {
  try {
    blocks.insert(block);
    if (block->isFirst) firstBlocks.insert(block);
    if (block->isLast) lastBlocks.insert(block);
    block->startCheck = &startCheck;
    startCheck = true;
    GraphEdited(block);
    // A wave holds every block at most once: frames never allocate.
    for (Wave* wave : {&beyondPlan, &current, &next, &done})
      wave->MakeRoomFor(blocks.size());
    MakeRoomFor(plan, 2 * blocks.size() + PLAN_END);  // a chain, one block per wave
  } catch (...) {
    RemoveBlock(block);
    ReleaseName(block->name);
    throw;
  }
}

void RouteImpl::RemoveBlock(Block* block) {
  firstBlocks.erase(block);
  lastBlocks.erase(block);
  blocks.erase(block);
  blockViews.erase(block);
  GraphEdited();
}

void RouteImpl::ReleaseName(const std::string& objectName) {
  const std::size_t digits = objectName.rfind('_') + 1;
  std::uint64_t number = 0;
  std::from_chars(objectName.data() + digits, objectName.data() + objectName.size(), number);
  const auto pool = numbers.find(objectName.substr(0, digits));
  if (pool != numbers.end()) pool->second.Release(number);
}

Link* RouteImpl::NewLink_l(unsigned int rate, SampleFormat format, unsigned int channels,
                           long samplesPerFrame, Block* source, unsigned long sourceBlkOutEpIdx,
                           Block* sink, unsigned long sinkBlkInEpIdx) {
  if (!Contains(source)) {
    LOG_E("%s: source %p doesn't exist", name.c_str(), LiveBlocks::NameAddressOf(source));
    return nullptr;
  }
  if (!Contains(sink)) {
    LOG_E("%s: sink %p doesn't exist", name.c_str(), LiveBlocks::NameAddressOf(sink));
    return nullptr;
  }
  if (sourceBlkOutEpIdx >= MAX_EPS) {
    LOG_E("%s: Invalid sourceBlkOutEpIdx %zu", name.c_str(), sourceBlkOutEpIdx);
    return nullptr;
  }
  if (sinkBlkInEpIdx >= MAX_EPS) {
    LOG_E("%s: %s: Invalid sinkBlkInEpIdx %zu", name.c_str(), sink->name.c_str(), sinkBlkInEpIdx);
    return nullptr;
  }
  NumberPool& pool = numbers["lnk_"];
  const std::uint64_t number = pool.Lowest();
  if (number >= NumberPool::LIMIT) {
    LOG_E("%s: Unable to give a name to this link", name.c_str());
    return nullptr;
  }
  auto link = std::make_unique<Link>(name, "lnk_" + std::to_string(number), rate, format, channels,
                                     samplesPerFrame);
  if (link->Connect(&source->outEps[sourceBlkOutEpIdx], &sink->inEps[sinkBlkInEpIdx]) < 0) {
    return nullptr;
  }
  links.insert(link.get());
  pool.Take(number);
  GraphEdited(source);
  GraphEdited(sink);
  return link.release();
}

int RouteImpl::Delete_l(void* instance) {
  if (const auto link = links.find(static_cast<Link*>(instance)); link != links.end()) {
    DeleteLink(*link);
    return 0;
  }
  if (const auto block = blocks.find(static_cast<Block*>(instance)); block != blocks.end()) {
    DeleteBlock(*block);
    return 0;
  }
  LOG_E("%s: No instance %p", name.c_str(), instance);
  return -20;
}

void RouteImpl::DeleteLink(Link* link) {
  ReleaseName(link->name);  // first: it may run out of memory, and nothing is lost then
  links.erase(link);
  GraphEdited(link->outEp->block);
  GraphEdited(link->inEp->block);
  delete link;
}

void RouteImpl::DeleteBlock(Block* block) {
  // Links first: the end of a link calls back into both of its blocks.
  for (InputEndpoint& ep : block->inEps) {
    if (ep.IsActive()) DeleteLink(ep.link);
  }
  for (OutputEndpoint& ep : block->outEps) {
    if (ep.IsActive()) DeleteLink(ep.link);
  }
  ReleaseName(block->name);
  RemoveBlock(block);
  delete block;
}

int RouteImpl::DeleteAll_l() {
  for (Link* link : links)
    delete link;
  links.clear();
  for (Block* block : blocks)
    delete block;
  firstBlocks.clear();
  lastBlocks.clear();
  blocks.clear();
  numbers.clear();
  blockViews.clear();
  GraphEdited();
  return 0;
}

int RouteImpl::Reset_l(Block* block) {
  if (!Contains(block)) {
    // Part of the action's own execution; its records carry that name.
    ZELK_LOG_AS('E', "ProcessActions", "%s: Block %s doesn't exist", name.c_str(),
                LiveBlocks::NameOf(block).c_str());
    return -20;
  }
  block->BaseReset();
  return 0;
}

int RouteImpl::SetParam_l(Block* block, unsigned int paramId,
                          const std::vector<std::string>& params) {
  if (!Contains(block)) {
    LOG_E("%s: Block %p doesn't exist", name.c_str(), static_cast<void*>(block));
    return -20;
  }
  LOG_I("%s: Setting parameter id %u to %s", name.c_str(), paramId, block->name.c_str());
  return Guarded(
      -20, [&] { return block->SetParameter(paramId, params); },
      [&](const char* what) {
        ZELK_LOG_AS('E', "SetParam_l", "%s: %s: SetParameter threw: %s", name.c_str(),
                    block->name.c_str(), what);
      });
}

int RouteImpl::GetParam_l(Block* block, unsigned int paramId, std::vector<std::string>& params) {
  if (!Contains(block)) {
    LOG_E("%s: Block %s doesn't exist", name.c_str(), LiveBlocks::NameOf(block).c_str());
    return -20;
  }
  LOG_I("%s: Getting parameter %u from block %s", name.c_str(), paramId, block->name.c_str());
  return Guarded(
      -20, [&] { return block->GetParameter(paramId, params); },
      [&](const char* what) {
        ZELK_LOG_AS('E', "GetParam_l", "%s: %s: GetParameter threw: %s", name.c_str(),
                    block->name.c_str(), what);
      });
}

void RouteImpl::SetDump_l(const char* path) {
  if (path == nullptr) {
    dumpPath.clear();
    for (Block* block : blocks)
      block->CloseDump();
    LOG_I("%s: Disabled dumping data", name.c_str());
    return;
  }
  std::string directory = path;
  if (!directory.empty() && directory.back() != '/') directory += '/';
  dumpPath = std::move(directory);
  LOG_I("%s: Enabled dumping data to %s", name.c_str(), dumpPath.c_str());
}

int RouteImpl::Exit_l() {
  view->status.store(Status::EXIT, std::memory_order_relaxed);
  Callback("OnExit", [](Route::Callbacks& client) { client.OnExit(); });
  return 0;
}

Block* RouteImpl::FindBlock(const std::string& blockName) const {
  const auto found = std::find_if(blocks.begin(), blocks.end(),
                                  [&](const Block* block) { return block->name == blockName; });
  return found != blocks.end() ? *found : nullptr;
}

Link* RouteImpl::FindLink(const std::string& linkName) const {
  const auto found = std::find_if(links.begin(), links.end(),
                                  [&](const Link* link) { return link->name == linkName; });
  return found != links.end() ? *found : nullptr;
}

}  // namespace zelk
