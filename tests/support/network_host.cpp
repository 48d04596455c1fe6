// The two hosts of the test across machines, and the comparison of what one played with what the
// other recorded.
//
//   network_host make FILE SECONDS           noise, no two stretches alike
//   network_host play FILE SERVER PORT       until the file's end
//   network_host record FILE SERVER PORT     until standard input ends
//   network_host compare SENT ARRIVED        0 when ARRIVED is SENT, in order
#include "support/WavFiles.h"

#include <zelk/Zelk.h>

#include <cstdio>
#include <cstring>
#include <future>
#include <iostream>
#include <unordered_map>

namespace {

using namespace zelk;
using test::Floats;

struct Ended : Route::Callbacks {
  void OnStopped(Route::StopReason why) override { reason.set_value(why); }
  std::promise<Route::StopReason> reason;
};

bool Run(bool play, const std::string& path, const std::string& server, const std::string& port) {
  Ended ended;
  Route* const route = Zelk::Instance()->NewRoute("RouteA", &ended);
  const std::vector<std::string> jack = {play ? "play" : "record", server, port};
  Block* const from = play ? route->NewBlock("filesrc.so", true, false, {path})
                           : route->NewBlock("jack.so", true, false, jack);
  Block* const to = play ? route->NewBlock("jack.so", false, true, jack)
                         : route->NewBlock("filesink.so", false, true, {path, "wavf"});
  if (!route->NewLink(48000, FLOAT_LE, 1, 480, from, 0, to, 0) || route->Start() < 0) return false;
  bool well = true;
  if (play)
    well = ended.reason.get_future().get() == Route::END_OF_FILE;
  else
    while (std::cin.get() != EOF) {
    }
  route->Stop();
  std::vector<std::string> lost;
  route->GetParameter(play ? to : from, 1, lost);
  std::fprintf(stderr, "%s: %s samples lost\n", jack[0].c_str(), lost[0].c_str());
  Zelk::Instance()->DeleteRoute(route);
  return well;
}

/// A network may lose a packet when the machine is busy, and silence takes its place; but nothing
/// may come changed, twice, or out of order, and nearly everything has to come.
bool Compare(const Floats& sent, Floats arrived) {
  std::erase(arrived, 0.0F);
  const auto key = [](const Floats& samples, std::size_t at) {
    std::uint64_t both;
    std::memcpy(&both, &samples[at], sizeof(both));
    return both;
  };
  std::unordered_map<std::uint64_t, std::size_t> positions;
  for (std::size_t i = 0; i + 1 < sent.size(); ++i)
    positions[key(sent, i)] = i;
  std::size_t next = 0, strange = 0, gaps = 0;
  for (std::size_t i = 0; i < arrived.size(); ++i) {
    if (next >= sent.size() || arrived[i] != sent[next]) {
      const auto found = i + 1 < arrived.size() ? positions.find(key(arrived, i)) : positions.end();
      if (found == positions.end() || found->second < next) {
        ++strange;
        continue;
      }
      ++gaps;
      next = found->second;
    }
    ++next;
  }
  std::fprintf(stderr, "compare: %zu samples sent, %zu arrived, %zu gaps, %zu strange\n",
               sent.size(), arrived.size(), gaps, strange);
  return !sent.empty() && strange == 0 && arrived.size() >= sent.size() * 9 / 10;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> words(argv + 1, argv + argc);
  const std::string what = words.empty() ? "" : words[0];
  bool well = false;
  if (what == "make" && words.size() == 3) {
    test::WriteWav(words[1], test::Noise(48000 * std::stoul(words[2])));
    well = true;
  } else if ((what == "play" || what == "record") && words.size() == 4) {
    well = Run(what == "play", words[1], words[2], words[3]);
  } else if (what == "compare" && words.size() == 3) {
    well = Compare(test::ReadWav<float>(words[1]), test::ReadWav<float>(words[2]));
  }
  return well ? 0 : 1;
}
