// lv2 URI [SYMBOL=VALUE ...]: an LV2 effect.
//
// Found where lilv looks (LV2_PATH). Controls go by their symbols or port numbers. A plug-in that
// requires a feature which this host lacks is refused; event ports hear and say nothing.
#include "common/EffectBlock.h"
#include "common/Log.h"
#include "common/Lv2Features.h"

#include <lilv/lilv.h>
#include <lv2/atom/atom.h>
#include <lv2/port-props/port-props.h>
#include <lv2/units/units.h>

#include <cmath>
#include <memory>
#include <mutex>

namespace {

using namespace zelk;
using namespace zelk::blocks;

constexpr char LOG_TAG[] = "blocks/lv2";

template <auto Free>
struct FreeWith {
  template <class T>
  void operator()(T* object) const {
    Free(object);
  }
};
using Node = std::unique_ptr<LilvNode, FreeWith<&lilv_node_free>>;
using Nodes = std::unique_ptr<LilvNodes, FreeWith<&lilv_nodes_free>>;

/// All that is installed, read once for all blocks that are alive together. lilv is not made for
/// several threads: whoever uses it holds `Mutex()`.
struct World {
  World() { lilv_world_load_all(world.get()); }
  static std::mutex& Mutex() {
    static std::mutex mutex;
    return mutex;
  }
  static std::shared_ptr<World> Get() {
    static std::weak_ptr<World> shared;
    auto there = shared.lock();
    if (!there) shared = there = std::make_shared<World>();
    return there;
  }
  Node Uri(const char* text) const { return Node(lilv_new_uri(world.get(), text)); }

  std::unique_ptr<LilvWorld, FreeWith<&lilv_world_free>> world{lilv_world_new()};
  Urids urids;
};

class Lv2Instance final : public EffectInstance {
 public:
  Lv2Instance(std::shared_ptr<World> w, const LilvPlugin* plugin, double rate,
              std::uint32_t longest)
      : world(std::move(w)), features(world->urids, rate, longest) {
    std::lock_guard lock(World::Mutex());
    instance = lilv_plugin_instantiate(plugin, rate, features.List());
    if (!instance) return;
    features.Created(lilv_instance_get_handle(instance),
                     static_cast<const LV2_Worker_Interface*>(
                         lilv_instance_get_extension_data(instance, LV2_WORKER__interface)));
  }
  ~Lv2Instance() override {
    std::lock_guard lock(World::Mutex());
    lilv_instance_free(instance);
  }
  bool Exists() const { return instance != nullptr; }

  /// An event port: an input hears nothing, whatever an output says is overwritten.
  void ConnectEvents(std::uint32_t port, bool input) {
    events.push_back(
        {port, input,
         std::vector<LV2_Atom_Sequence>(Lv2Features::SEQUENCE_BYTES / sizeof(LV2_Atom_Sequence))});
    lilv_instance_connect_port(instance, port, events.back().buffer.data());
    ClearEvents();
  }
  /// A port of another kind: nothing, or for control voltages silence.
  void ConnectOther(std::uint32_t port, std::uint32_t longest, bool signal) {
    if (signal) silences.emplace_back(longest);
    lilv_instance_connect_port(instance, port, signal ? silences.back().data() : nullptr);
  }

  void Connect(std::uint32_t port, float* where) override {
    lilv_instance_connect_port(instance, port, where);
  }
  void Activate() override { lilv_instance_activate(instance); }
  void Deactivate() override { lilv_instance_deactivate(instance); }
  void Run(std::uint32_t samples) override {
    lilv_instance_run(instance, samples);
    features.AfterRun();
    ClearEvents();
  }

 private:
  struct Events {
    std::uint32_t port;
    bool input;
    std::vector<LV2_Atom_Sequence> buffer;
  };

  void ClearEvents() {
    for (Events& e : events) {
      LV2_Atom_Sequence& sequence = e.buffer.front();
      // An output announces its room, and the plug-in writes over that.
      sequence.atom.type = e.input ? sequenceType : chunkType;
      sequence.atom.size =
          e.input ? sizeof(LV2_Atom_Sequence_Body)
                  : static_cast<std::uint32_t>(Lv2Features::SEQUENCE_BYTES - sizeof(LV2_Atom));
      sequence.body = {};
    }
  }

  const std::shared_ptr<World> world;
  Lv2Features features;
  LilvInstance* instance = nullptr;
  const LV2_URID sequenceType = world->urids.Map(LV2_ATOM__Sequence);
  const LV2_URID chunkType = world->urids.Map(LV2_ATOM__Chunk);
  std::vector<Events> events;
  std::vector<std::vector<float>> silences;
};

class Lv2Effect final : public Effect {
 public:
  Lv2Effect(std::shared_ptr<World> w, const LilvPlugin* p) : world(std::move(w)), plugin(p) {
    label = lilv_node_as_uri(lilv_plugin_get_uri(plugin));
    if (lilv_plugin_has_latency(plugin)) latencyPort = lilv_plugin_get_latency_port_index(plugin);
    for (std::uint32_t i = 0; i < lilv_plugin_get_num_ports(plugin); ++i) {
      const LilvPort* const port = lilv_plugin_get_port_by_index(plugin, i);
      ports.push_back(DescribePort(port));
      extras.push_back(Is(port, LV2_ATOM__AtomPort) ? Extra::EVENTS
                       : Is(port, LV2_CORE__CVPort) ? Extra::SIGNAL
                                                    : Extra::NOTHING);
      inputs.push_back(Is(port, LV2_CORE__InputPort));
    }
  }

  std::unique_ptr<EffectInstance> Instantiate(double rate, std::uint32_t longest) override {
    auto made = std::make_unique<Lv2Instance>(world, plugin, rate, longest);
    if (!made->Exists()) return nullptr;
    for (std::uint32_t i = 0; i < ports.size(); ++i) {
      if (ports[i].kind != EffectPort::OTHER) continue;
      if (extras[i] == Extra::EVENTS)
        made->ConnectEvents(i, inputs[i]);
      else
        made->ConnectOther(i, longest, extras[i] == Extra::SIGNAL);
    }
    return made;
  }

 private:
  enum class Extra { NOTHING, EVENTS, SIGNAL };

  bool Is(const LilvPort* port, const char* portClass) const {
    return lilv_port_is_a(plugin, port, world->Uri(portClass).get());
  }
  bool Has(const LilvPort* port, const char* property) const {
    return lilv_port_has_property(plugin, port, world->Uri(property).get());
  }

  EffectPort DescribePort(const LilvPort* port) const {
    EffectPort d;
    d.name = lilv_node_as_string(lilv_port_get_symbol(plugin, port));
    const bool in = Is(port, LV2_CORE__InputPort);
    if (Is(port, LV2_CORE__AudioPort)) d.kind = in ? EffectPort::AUDIO_IN : EffectPort::AUDIO_OUT;
    if (!Is(port, LV2_CORE__ControlPort)) return d;
    d.kind = in ? EffectPort::CONTROL_IN : EffectPort::CONTROL_OUT;

    LilvNode *initial = nullptr, *min = nullptr, *max = nullptr;
    lilv_port_get_range(plugin, port, &initial, &min, &max);
    const Node owners[] = {Node(initial), Node(min), Node(max)};
    const auto number = [](const LilvNode* node, double otherwise) {
      const double value = node ? static_cast<double>(lilv_node_as_float(node)) : otherwise;
      return std::isfinite(value) ? value : otherwise;
    };
    const bool toggled = Has(port, LV2_CORE__toggled);
    d.min = number(min, toggled ? 0 : d.min);
    d.max = number(max, toggled ? 1 : d.max);
    d.initial = number(initial, d.min > 0 || d.max < 0 ? d.min : 0);
    d.perRate = Has(port, LV2_CORE__sampleRate);
    d.stepped = toggled || Has(port, LV2_CORE__integer) || Has(port, LV2_CORE__enumeration);
    const Node unit(lilv_port_get(plugin, port, world->Uri(LV2_UNITS__unit).get()));
    const std::string text =
        unit && lilv_node_is_uri(unit.get()) ? lilv_node_as_uri(unit.get()) : "";
    if (const auto at = text.find('#'); at != std::string::npos) d.unit = text.substr(at + 1);
    return d;
  }

  const std::shared_ptr<World> world;
  const LilvPlugin* const plugin;
  std::vector<Extra> extras;  // of ports that the block does not connect
  std::vector<bool> inputs;
};

/// The first feature that the plug-in cannot do without and that is not here; empty for none.
std::string MissingFeature(const LilvPlugin* plugin) {
  const Nodes required(lilv_plugin_get_required_features(plugin));
  LILV_FOREACH(nodes, i, required.get()) {
    const char* const uri = lilv_node_as_uri(lilv_nodes_get(required.get(), i));
    if (!Lv2Features::Supports(uri)) return uri;
  }
  return "";
}

}  // namespace

ZELK_PLUGIN zelk::Block* CreateBlock(bool first, bool last, const std::vector<std::string>& args) {
  if (args.empty()) {
    LOG_E("lv2 takes URI, then SYMBOL=VALUE; got no word");
    return nullptr;
  }
  std::unique_ptr<Effect> effect;
  {
    std::lock_guard lock(World::Mutex());
    const std::shared_ptr<World> world = World::Get();
    const Node uri = world->Uri(args[0].c_str());
    const LilvPlugins* const all = lilv_world_get_all_plugins(world->world.get());
    const LilvPlugin* const plugin = uri ? lilv_plugins_get_by_uri(all, uri.get()) : nullptr;
    if (!plugin) {
      LOG_E("no LV2 plug-in %s is installed", args[0].c_str());
      return nullptr;
    }
    if (const std::string missing = MissingFeature(plugin); !missing.empty()) {
      LOG_E("%s needs %s, which zelk does not have", args[0].c_str(), missing.c_str());
      return nullptr;
    }
    effect = std::make_unique<Lv2Effect>(world, plugin);
  }
  return MakeEffectBlock(LOG_TAG, first, last, std::move(effect), std::span(args).subspan(1));
}
