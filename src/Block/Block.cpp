#include <zelk/Block.h>

#include <bit>

#include "Block/LiveBlocks.h"
#include "Boundary.h"
#include "Log.h"

namespace zelk {

static constexpr char LOG_TAG[] = "src/Block";

namespace {

constexpr std::uint32_t Bit(std::size_t index) {
  return std::uint32_t{1} << index;
}

// Runs a hook; what it throws is logged under the name of the operation that called it.
template <typename Call>
int RunHook(const char* function, const std::string& routeName, const std::string& name,
            const char* hook, Call&& call) {
  return Guarded(-20, call, [&](const char* what) {
    ZELK_LOG_AS('E', function, "%s: %s: %s threw: %s", routeName.c_str(), name.c_str(), hook, what);
  });
}

}  // namespace

Block::Block(bool isFirst_, bool isLast_) : isFirst(isFirst_), isLast(isLast_) {
  for (std::size_t i = 0; i < MAX_EPS; ++i) {
    inEps[i].index = outEps[i].index = i;
    inEps[i].block = outEps[i].block = this;
  }
  LiveBlocks::Add(this);
}

Block::~Block() {
  LiveBlocks::Remove(this);
  CloseDump();
  LOG_I("%s: %s: Deleted", routeName.c_str(), name.c_str());
}

void Block::SetName(const std::string& routeName_, const std::string& name_,
                    const std::string* dumpPath_) {
  routeName = routeName_;
  name = name_;
  nameText = name.c_str();
  dumpPath = dumpPath_;
  LOG_I("%s: %s: Created", routeName.c_str(), name.c_str());
}

int Block::BaseOnInEpLinked(std::size_t index) {
  return Linked(__func__, "Input", activeInEps, activeIns, inEps[index],
                [&] { return OnInEpLinked(index); });
}

int Block::BaseOnOutEpLinked(std::size_t index) {
  return Linked(__func__, "Output", activeOutEps, activeOuts, outEps[index],
                [&] { return OnOutEpLinked(index); });
}

template <typename Map, typename Port, typename Hook>
int Block::Linked(const char* function, const char* side, Map& active, std::uint32_t& mask,
                  Port& ep, Hook&& hook) {
  const std::size_t index = ep.index;
  const int ret = RunHook(function, routeName, name, "Linking", [&] {
    if (!active.emplace(index, &ep).second) {
      ZELK_LOG_AS('E', function, "%s: %s: %s endpoint %zu existed", routeName.c_str(), name.c_str(),
                  side, index);
      return -20;
    }
    mask |= Bit(index);
    const int answer = RunHook(function, routeName, name, "The link hook", hook);
    if (answer < 0) {
      active.erase(index);
      mask &= ~Bit(index);
    }
    return answer;
  });
  if (ret < 0) return ret;
  ZELK_LOG_AS('D', function, "%s: %s: %s endpoint %zu linked", routeName.c_str(), name.c_str(),
              side, index);
  return ret;
}

void Block::BaseOnInEpUnlinked(std::size_t index) {
  activeInEps.erase(index);
  activeIns &= ~Bit(index);
  LOG_D("%s: %s: Input endpoint %zu unlinked", routeName.c_str(), name.c_str(), index);
  RunHook(__func__, routeName, name, "OnInEpUnlinked", [&] {
    OnInEpUnlinked(index);
    return 0;
  });
}

void Block::BaseOnOutEpUnlinked(std::size_t index) {
  activeOutEps.erase(index);
  activeOuts &= ~Bit(index);
  LOG_D("%s: %s: Output endpoint %zu unlinked", routeName.c_str(), name.c_str(), index);
  RunHook(__func__, routeName, name, "OnOutEpUnlinked", [&] {
    OnOutEpUnlinked(index);
    return 0;
  });
}

int Block::BaseStart() {
  if (started) return 0;
  const int ret = RunHook(__func__, routeName, name, "Start", [&] { return Start(); });
  started = ret == 0;
  return ret;
}

int Block::BaseStop() {
  if (!started) return 0;
  const int ret = RunHook(__func__, routeName, name, "Stop", [&] { return Stop(); });
  started = ret != 0;
  if (!started && startCheck != nullptr) *startCheck = true;
  return ret;
}

void Block::BaseReset() {
  LOG_D("%s: %s: Reset", routeName.c_str(), name.c_str());
  RunHook(__func__, routeName, name, "Reset", [&] {
    Reset();
    return 0;
  });
  for (auto& [index, ep] : activeInEps)
    ep->fb.validSamples = 0;
  for (auto& [index, ep] : activeOutEps)
    ep->fb.validSamples = 0;
}

bool Block::ActiveInEpsDataIsReady() const noexcept {
  for (std::uint32_t rest = activeIns; rest != 0; rest &= rest - 1) {
    if (inEps[std::countr_zero(rest)].fb.validSamples == 0) return false;
  }
  return true;
}

bool Block::ActiveOutEpsDataIsEmpty() const noexcept {
  for (std::uint32_t rest = activeOuts; rest != 0; rest &= rest - 1) {
    if (outEps[std::countr_zero(rest)].fb.validSamples == 0) return true;
  }
  return false;
}

void Block::ClearActiveInEpsData() noexcept {
  for (auto& [index, ep] : activeInEps)
    ep->fb.validSamples = 0;
}

int Block::ioctl(unsigned int, void*) {
  return -20;
}
const char* Block::Subname() const {
  return nullptr;
}
int Block::OnInEpLinked(std::size_t) {
  return 0;
}
void Block::OnInEpUnlinked(std::size_t) {}
int Block::OnOutEpLinked(std::size_t) {
  return 0;
}
void Block::OnOutEpUnlinked(std::size_t) {}
int Block::Start() {
  return 0;
}
int Block::Stop() {
  return 0;
}
void Block::Reset() {}
long Block::Delay() const {
  return 0;
}

int Block::SetParameter(unsigned int paramId, const std::vector<std::string>& params) {
  LOG_I("%s: %s: paramId=%d, params.size()=%zu", routeName.c_str(), name.c_str(),
        static_cast<int>(paramId), params.size());
  return 0;
}

int Block::GetParameter(unsigned int paramId, std::vector<std::string>&) {
  LOG_I("%s: %s: paramId=%d", routeName.c_str(), name.c_str(), static_cast<int>(paramId));
  return 0;
}

}  // namespace zelk
