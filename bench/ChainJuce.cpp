// The chain as processors that do nothing in JUCE's AudioProcessorGraph, rendered on the measuring
// thread.
#include <juce_audio_processors/juce_audio_processors.h>

#include <initializer_list>
#include <memory>

#include "ZelkGraph.h"

using namespace bench;

void AddChainOfJuce();

namespace {

class Through final : public juce::AudioProcessor {
 public:
  Through()
      : AudioProcessor(BusesProperties()
                           .withInput("in", juce::AudioChannelSet::stereo())
                           .withOutput("out", juce::AudioChannelSet::stereo())) {}
  const juce::String getName() const override { return "through"; }
  void prepareToPlay(double, int) override {}
  void releaseResources() override {}
  void processBlock(juce::AudioBuffer<float>&, juce::MidiBuffer&) override {}
  double getTailLengthSeconds() const override { return 0; }
  bool acceptsMidi() const override { return false; }
  bool producesMidi() const override { return false; }
  juce::AudioProcessorEditor* createEditor() override { return nullptr; }
  bool hasEditor() const override { return false; }
  int getNumPrograms() override { return 1; }
  int getCurrentProgram() override { return 0; }
  void setCurrentProgram(int) override {}
  const juce::String getProgramName(int) override { return {}; }
  void changeProgramName(int, const juce::String&) override {}
  void getStateInformation(juce::MemoryBlock&) override {}
  void setStateInformation(const void*, int) override {}
};

struct Graph {
  using Io = juce::AudioProcessorGraph::AudioGraphIOProcessor;

  explicit Graph(std::size_t processors) {
    graph.setPlayConfigDetails(CHANNELS, CHANNELS, RATE, SAMPLES);
    auto previous = Add(std::make_unique<Io>(Io::audioInputNode));
    for (std::size_t i = 0; i < processors; ++i)
      previous = Follow(previous, Add(std::make_unique<Through>()));
    Follow(previous, Add(std::make_unique<Io>(Io::audioOutputNode)));
    graph.prepareToPlay(RATE, SAMPLES);
  }

  juce::AudioProcessorGraph::NodeID Add(std::unique_ptr<juce::AudioProcessor> processor) {
    const auto node = graph.addNode(std::move(processor), {}, LATER);
    Require(node != nullptr, "addNode");
    return node->nodeID;
  }

  juce::AudioProcessorGraph::NodeID Follow(juce::AudioProcessorGraph::NodeID from,
                                           juce::AudioProcessorGraph::NodeID to) {
    for (int channel = 0; channel < static_cast<int>(CHANNELS); ++channel)
      Require(graph.addConnection({{from, channel}, {to, channel}}, LATER), "addConnection");
    return to;
  }

  void Frame() { graph.processBlock(buffer, midi); }

  static constexpr auto LATER = juce::AudioProcessorGraph::UpdateKind::async;
  juce::ScopedJuceInitialiser_GUI messageManager;
  juce::AudioProcessorGraph graph;
  juce::AudioBuffer<float> buffer{CHANNELS, SAMPLES};
  juce::MidiBuffer midi;
};

}  // namespace

void AddChainOfJuce() {
  // It builds its list of operations in a time that grows with the cube of the graph.
  for (const std::size_t blocks : std::initializer_list<std::size_t>{8, 32, 128, 512}) {
    Add("chain/JUCE graph/" + std::to_string(blocks), [blocks] {
      auto graph = std::make_shared<Graph>(blocks);
      return OnThisThread([graph] { graph->Frame(); });
    });
  }
}
