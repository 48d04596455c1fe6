// Whatever the graph, every sample that goes in comes out, and nothing else does.
#include "common/EndOfInput.h"
#include "support/Graph.h"

#include <algorithm>
#include <climits>
#include <map>
#include <random>

namespace {

using namespace zelk;
using test::Counting;
using test::Floats;
using test::Memory;
using test::Shorts;

TEST(LastMark, CarriesTheTimeAndIsNoTimeToOthers) {
  EXPECT_EQ(-2, blocks::LastMark(0));
  EXPECT_EQ(-12, blocks::LastMark(10));
  EXPECT_EQ(LLONG_MIN, blocks::LastMark(-1));
  for (const long long time : {-1LL, 0LL, 1LL, 1'000'000'000'000LL}) {
    EXPECT_TRUE(blocks::IsLastMark(blocks::LastMark(time)));
    EXPECT_EQ(time, blocks::TimeOf(blocks::LastMark(time)));
    EXPECT_FALSE(blocks::IsLastMark(time));
    EXPECT_EQ(time, blocks::TimeOf(time));
  }
  EXPECT_FALSE(blocks::IsLastMark(blocks::HELD));
  EXPECT_EQ(LLONG_MIN, blocks::LastMark(LLONG_MAX - 3));
}

/// A route built of named blocks, in an order that the test chooses.
class EndOfInput : public test::RouteFixture {
 protected:
  struct Node {
    Words words;
    bool first = false;
    bool last = false;
  };
  struct Edge {
    std::string from;
    unsigned long out;
    std::string to;
    unsigned long in;
    unsigned int channels = 1;
  };

  /// Runs the graph until it stops by itself; why it did.
  std::optional<Route::StopReason> Run(const std::vector<std::string>& order,
                                       const std::vector<Edge>& joins) {
    std::map<std::string, Block*> made;
    for (const auto& name : order) {
      const Node& node = nodes.at(name);
      made[name] = New(node.words, node.first, node.last);
      EXPECT_NE(nullptr, made[name]) << name;
    }
    for (const auto& join : joins) {
      EXPECT_TRUE(Join(made[join.from], join.out, made[join.to], join.in,
                       {S16_LE, join.channels, 48000, 100}));
    }
    const auto reason = RouteFixture::Run();
    EXPECT_EQ(0, route->DeleteAll());
    return reason;
  }

  Node FileSource(const std::string& name, std::size_t samples) {
    test::WriteWav(directory / name, Counting(samples));
    return {{"filesrc", directory / name}, true, false};
  }
  Node FileSink(const std::string& name) { return {{"filesink", directory / name}, false, true}; }

  std::map<std::string, Node> nodes;
};

/// Grows a graph at random: every source reaches the sink, through gains, tees and joins of any
/// depth.
class RandomGraph {
 public:
  explicit RandomGraph(unsigned seed) : random(seed) {}

  /// A stream nobody takes yet: where it comes from, and the source of each of its channels.
  struct Stream {
    std::string from;
    unsigned long out;
    std::vector<int> sources;
  };

  void Grow(int sources) {
    for (int i = 0; i < sources; ++i)
      streams.push_back({"source" + std::to_string(i), 0, {i}});
    for (int i = 0; i < 10; ++i) {
      switch (Below(3)) {
        case 0:
          Add("gain", {Take()}, 1);
          break;
        case 1:
          Add("patch", {Take()}, 1 + Below(3));
          break;
        default:
          if (streams.size() > 2) Add("patch", {Take(), Take()}, 1);
      }
    }
    std::vector<Stream> all;
    while (!streams.empty())
      all.push_back(Take());
    Add("patch", all, 1);
  }

  std::size_t Below(std::size_t limit) { return random() % limit; }

  std::vector<Stream> streams;
  std::map<std::string, std::string> files;  // of the blocks, by name; the last one is "patch" too
  std::string last;
  struct Step {
    Stream from;
    std::string to;
    unsigned long in;
  };
  std::vector<Step> steps;
  std::minstd_rand random;

 private:
  Stream Take() {
    const auto at = streams.begin() + static_cast<long>(Below(streams.size()));
    Stream stream = *at;
    streams.erase(at);
    return stream;
  }

  void Add(const char* file, const std::vector<Stream>& inputs, std::size_t outputs) {
    last = file + std::string("@") + std::to_string(files.size());
    files[last] = file;
    std::vector<int> sources;
    for (std::size_t i = 0; i < inputs.size(); ++i) {
      steps.push_back({inputs[i], last, i});
      sources.insert(sources.end(), inputs[i].sources.begin(), inputs[i].sources.end());
    }
    for (std::size_t i = 0; i < outputs; ++i)
      streams.push_back({last, i, sources});
  }
};

TEST_F(EndOfInput, InGraphsOfAnyShapeAndAnyOrderOfAddressesNoSampleIsLostOrDumpedTwice) {
  for (unsigned seed = 1; seed <= 150; ++seed) {
    SCOPED_TRACE(seed);
    RandomGraph graph(seed);
    const int sources = 2 + static_cast<int>(seed % 3);
    graph.Grow(sources);
    const auto channels = graph.streams[0].sources;
    std::vector<std::string> order = {"sink"};
    nodes = {{"sink", FileSink("out.wav")}};
    std::vector<std::size_t> lengths;
    for (int i = 0; i < sources; ++i) {
      const std::string name = "source" + std::to_string(i);
      lengths.push_back(1 + graph.Below(700));
      nodes[name] = FileSource(name, lengths.back());
      order.push_back(name);
    }
    std::vector<Edge> joins;
    for (const auto& [name, file] : graph.files) {
      nodes[name] = {{file}};
      order.push_back(name);
    }
    for (const auto& step : graph.steps)
      joins.push_back({step.from.from, step.from.out, step.to, step.in,
                       static_cast<unsigned>(step.from.sources.size())});
    joins.push_back({graph.last, 0, "sink", 0, static_cast<unsigned>(channels.size())});
    std::shuffle(order.begin(), order.end(), graph.random);

    test::TemporaryDirectory dumps;
    route->SetDump(dumps.path.c_str());
    ASSERT_EQ(Route::END_OF_FILE, Run(order, joins));
    route->SetDump(nullptr);

    Shorts expected;
    const std::size_t longest = *std::max_element(lengths.begin(), lengths.end());
    for (std::size_t i = 0; i < longest; ++i)
      for (const int source : channels)
        expected.push_back(i < lengths[static_cast<std::size_t>(source)] ? short(i + 1) : short{0});
    ASSERT_EQ(expected, test::ReadWav<short>(directory / "out.wav"));
    // Every stream was dumped once: its bytes are those of all its channels' sources.
    std::size_t dumped = 0, sent = 0;
    for (const auto& file : std::filesystem::directory_iterator(dumps.path))
      dumped += file.file_size();
    for (const auto& join : joins) {
      std::size_t samples = longest;
      for (const auto& step : graph.steps)
        if (step.from.from == join.from && step.from.out == join.out) {
          samples = 0;
          for (const int source : step.from.sources)
            samples = std::max(samples, lengths[static_cast<std::size_t>(source)]);
        }
      sent += samples * join.channels * sizeof(short);
    }
    ASSERT_EQ(sent, dumped);
  }
}

TEST_F(EndOfInput, ABlockThatKnowsNothingOfItGetsEverySampleAndIsNeverCalledForNothing) {
  nodes = {{"a", FileSource("a.wav", 250)},
           {"gain", {{"gain"}}},
           {"naive", {{"patch", "naive"}}},
           {"sink", FileSink("out.wav")}};
  EXPECT_EQ(Route::END_OF_FILE,
            Run({"a", "gain", "naive", "sink"},
                {{"a", 0, "gain", 0}, {"gain", 0, "naive", 0}, {"naive", 0, "sink", 0}}));
  EXPECT_EQ(Counting(250), test::ReadWav<short>(directory / "out.wav"));

  // Behind one output of a tee, while the other one is held.
  nodes["tee"] = {{"patch"}};
  nodes["end"] = {{"patch", "naive"}, false, true};
  EXPECT_EQ(Route::END_OF_FILE, Run({"a", "tee", "gain", "end", "sink"}, {{"a", 0, "tee", 0},
                                                                          {"tee", 0, "gain", 0},
                                                                          {"tee", 1, "end", 0},
                                                                          {"gain", 0, "sink", 0}}));
  EXPECT_EQ(Counting(250), test::ReadWav<short>(directory / "out.wav"));
}

TEST_F(EndOfInput, ASourceWithoutSamplesEndsTheRouteAtOnce) {
  nodes = {{"a", FileSource("a.wav", 0)}, {"gain", {{"gain"}}}, {"sink", FileSink("out.wav")}};
  EXPECT_EQ(Route::END_OF_FILE,
            Run({"a", "gain", "sink"}, {{"a", 0, "gain", 0}, {"gain", 0, "sink", 0}}));
  EXPECT_EQ(Shorts{}, test::ReadWav<short>(directory / "out.wav"));
}

class FileSource : public test::Graph {};

TEST_F(FileSource, AFileRepeatsWithoutAGapAndIsEnteredAtAnyPlace) {
  test::WriteWav(directory / "in.wav", test::Counting(250));
  Block* const source = Source({"filesrc", directory / "in.wav"});
  Block* const gate = New({"tee"});
  Memory heard;
  Block* const sink = Sink({"filesink", directory / "out.wav"});
  ASSERT_TRUE(Join(source, 0, gate, 0, {S16_LE, 1, 48000, 100}));
  ASSERT_TRUE(Join(gate, 0, sink, 0, {S16_LE, 1, 48000, 100}));
  ASSERT_TRUE(Join(gate, 1, Sink(heard), 0, {S16_LE, 1, 48000, 100}));
  heard.before = [&](std::size_t frames, FrameBuffer&) {
    if (frames == 7) source->SetParameter(1, {"0"});
  };
  EXPECT_EQ(0, route->SetParameter(source, 1, {"1"}));
  EXPECT_EQ(0, route->SetParameter(source, 2, {"0.001"}));
  EXPECT_EQ(-20, route->SetParameter(source, 2, {"0.0053"}));  // the file is 250 samples long
  EXPECT_EQ(Route::END_OF_FILE, Run(true));
  Shorts expected = test::Counting(250);
  expected.erase(expected.begin(), expected.begin() + 48);
  for (int i = 0; i < 3; ++i)
    for (short n = 1; n <= 250; ++n)
      expected.push_back(n);
  expected.resize(202 + 2 * 250);
  EXPECT_EQ(expected, heard.As<short>());
  EXPECT_EQ(expected, test::ReadWav<short>(directory / "out.wav"));
  EXPECT_DOUBLE_EQ(250 / 48000.0, Parameter(source, 3));
  EXPECT_DOUBLE_EQ(702 / 48000.0, Parameter(sink, 1));
}

TEST_F(FileSource, AJumpInARunningFileIsACrossfade) {
  Shorts low(9600, -10000);
  std::fill(low.begin() + 4800, low.end(), short{10000});
  test::WriteWav(directory / "in.wav", low);
  Block* const source = Source({"filesrc", directory / "in.wav"});
  Memory heard;
  ASSERT_TRUE(Join(source, 0, Sink(heard), 0));
  heard.before = [&](std::size_t frames, FrameBuffer&) {
    if (frames == 2) {
      EXPECT_EQ(0, source->SetParameter(2, {"0.15"}));
    }
  };
  EXPECT_EQ(Route::END_OF_FILE, Run());
  const Floats out = heard.As<float>();
  EXPECT_EQ(960U + 2400, out.size());
  EXPECT_NEAR(-0.305, out[959], 0.001);
  EXPECT_NEAR(0.305, out[1920], 0.001);
  EXPECT_LT(test::LargestStep(out), 0.001F);
}

}  // namespace
