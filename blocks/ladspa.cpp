// ladspa FILE LABEL [PORT=VALUE ...]: a LADSPA effect.
//
// FILE is a path, or a bare name that is looked for in the folders of LADSPA_PATH, with or without
// its ".so". PORT is a control's name with "_" for its blanks, or its number.
#include <ladspa.h>

#include "common/Arguments.h"
#include "common/EffectBlock.h"
#include "common/Log.h"

#include <dlfcn.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <sstream>

namespace {

using namespace zelk;
using namespace zelk::blocks;

constexpr char LOG_TAG[] = "blocks/ladspa";

struct CloseHandle {
  void operator()(void* handle) const { dlclose(handle); }
};
using SharedObject = std::shared_ptr<void>;

class LadspaInstance final : public EffectInstance {
 public:
  LadspaInstance(SharedObject file, const LADSPA_Descriptor& d, LADSPA_Handle made)
      : object(std::move(file)), descriptor(d), handle(made) {}
  ~LadspaInstance() override {
    if (descriptor.cleanup) descriptor.cleanup(handle);
  }
  void Connect(std::uint32_t port, float* where) override {
    descriptor.connect_port(handle, port, where);
  }
  void Activate() override {
    if (descriptor.activate) descriptor.activate(handle);
  }
  void Deactivate() override {
    if (descriptor.deactivate) descriptor.deactivate(handle);
  }
  void Run(std::uint32_t samples) override { descriptor.run(handle, samples); }

 private:
  const SharedObject object;
  const LADSPA_Descriptor& descriptor;
  LADSPA_Handle handle;
};

EffectPort DescribePort(const LADSPA_Descriptor& d, unsigned long index) {
  EffectPort port;
  port.name = d.PortNames[index];
  std::replace(port.name.begin(), port.name.end(), ' ', '_');
  const LADSPA_PortDescriptor kind = d.PortDescriptors[index];
  const bool in = LADSPA_IS_PORT_INPUT(kind);
  if (LADSPA_IS_PORT_AUDIO(kind)) {
    port.kind = in ? EffectPort::AUDIO_IN : EffectPort::AUDIO_OUT;
    return port;
  }
  port.kind = in ? EffectPort::CONTROL_IN : EffectPort::CONTROL_OUT;

  const LADSPA_PortRangeHint& range = d.PortRangeHints[index];
  const LADSPA_PortRangeHintDescriptor hints = range.HintDescriptor;
  const auto finite = [](float bound, double otherwise) {
    return std::isfinite(bound) ? double{bound} : otherwise;
  };
  const bool toggled = LADSPA_IS_HINT_TOGGLED(hints);
  if (LADSPA_IS_HINT_BOUNDED_BELOW(hints)) port.min = finite(range.LowerBound, port.min);
  if (LADSPA_IS_HINT_BOUNDED_ABOVE(hints)) port.max = finite(range.UpperBound, port.max);
  if (toggled) port.min = 0, port.max = 1;
  port.perRate = LADSPA_IS_HINT_SAMPLE_RATE(hints);
  port.stepped = toggled || LADSPA_IS_HINT_INTEGER(hints);

  const auto between = [&](double share) {
    if (LADSPA_IS_HINT_LOGARITHMIC(hints) && port.min > 0)
      return std::exp(std::log(port.min) * (1 - share) + std::log(port.max) * share);
    return port.min * (1 - share) + port.max * share;
  };
  const int initial = hints & LADSPA_HINT_DEFAULT_MASK;
  port.initialPerRate = port.perRate && initial != 0 && initial <= LADSPA_HINT_DEFAULT_MAXIMUM;
  switch (initial) {
    case LADSPA_HINT_DEFAULT_MINIMUM:
      port.initial = port.min;
      break;
    case LADSPA_HINT_DEFAULT_LOW:
      port.initial = between(0.25);
      break;
    case LADSPA_HINT_DEFAULT_MIDDLE:
      port.initial = between(0.5);
      break;
    case LADSPA_HINT_DEFAULT_HIGH:
      port.initial = between(0.75);
      break;
    case LADSPA_HINT_DEFAULT_MAXIMUM:
      port.initial = port.max;
      break;
    case LADSPA_HINT_DEFAULT_1:
      port.initial = 1;
      break;
    case LADSPA_HINT_DEFAULT_100:
      port.initial = 100;
      break;
    case LADSPA_HINT_DEFAULT_440:
      port.initial = 440;
      break;
    default:
      port.initial = std::clamp(0.0, port.min, std::max(port.min, port.max));
  }
  if (LADSPA_IS_HINT_INTEGER(hints)) port.initial = std::round(port.initial);
  return port;
}

class LadspaEffect final : public Effect {
 public:
  LadspaEffect(SharedObject file, const LADSPA_Descriptor& d)
      : object(std::move(file)), descriptor(d) {
    label = d.Label;
    for (unsigned long i = 0; i < d.PortCount; ++i)
      ports.push_back(DescribePort(d, i));
  }
  std::unique_ptr<EffectInstance> Instantiate(double rate, std::uint32_t) override {
    LADSPA_Handle handle = descriptor.instantiate(&descriptor, static_cast<unsigned long>(rate));
    if (!handle) return nullptr;
    return std::make_unique<LadspaInstance>(object, descriptor, handle);
  }

 private:
  const SharedObject object;
  const LADSPA_Descriptor& descriptor;
};

/// The paths that FILE may stand for, best first.
std::vector<std::string> Candidates(const std::string& file) {
  std::vector<std::string> folders = {""};
  if (file.find('/') == std::string::npos) {
    const char* const path = std::getenv("LADSPA_PATH");
    std::istringstream list(path && *path ? path
                                          : "/usr/local/lib/ladspa:/usr/lib/ladspa:"
                                            "/usr/lib64/ladspa:/Library/Audio/Plug-Ins/LADSPA");
    folders.clear();
    for (std::string folder; std::getline(list, folder, ':');)
      if (!folder.empty()) folders.push_back(folder + '/');
  }
  std::vector<std::string> paths;
  for (const auto& folder : folders)
    for (const char* suffix : {"", ".so", ".dylib"})
      paths.push_back(folder + file + suffix);
  return paths;
}

SharedObject OpenFile(const std::string& file) {
  for (const auto& path : Candidates(file)) {
    std::error_code ignored;
    if (!std::filesystem::is_regular_file(path, ignored)) continue;
    if (void* const handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL))
      return SharedObject(handle, CloseHandle());
    LOG_E("%s cannot be loaded: %s", path.c_str(), dlerror());
    return nullptr;
  }
  LOG_E("there is no LADSPA file %s, nor in the folders of LADSPA_PATH", file.c_str());
  return nullptr;
}

const LADSPA_Descriptor* FindEffect(void* object, const std::string& file,
                                    const std::string& label) {
  const auto describe =
      reinterpret_cast<LADSPA_Descriptor_Function>(dlsym(object, "ladspa_descriptor"));
  std::string known;
  for (unsigned long i = 0; describe; ++i) {
    const LADSPA_Descriptor* const d = describe(i);
    if (!d) break;
    if (label == d->Label) return d;
    known += std::string(" ") + d->Label;
  }
  LOG_E("%s has no effect %s; it has%s", file.c_str(), label.c_str(),
        known.empty() ? " none" : known.c_str());
  return nullptr;
}

}  // namespace

ZELK_PLUGIN zelk::Block* CreateBlock(bool first, bool last, const std::vector<std::string>& args) {
  const auto file = args.size() < 2 ? std::nullopt : PathFromWord(args[0]);
  if (!file) {
    LOG_E("ladspa takes FILE, LABEL, then PORT=VALUE; got %zu words", args.size());
    return nullptr;
  }
  const SharedObject object = OpenFile(*file);
  const LADSPA_Descriptor* const found =
      object ? FindEffect(object.get(), *file, args[1]) : nullptr;
  if (!found) return nullptr;
  return MakeEffectBlock(LOG_TAG, first, last, std::make_unique<LadspaEffect>(object, *found),
                         std::span(args).subspan(2));
}
