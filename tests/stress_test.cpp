// Four host threads and a console edit routes at the same time. Takes the number of rounds of each
// thread as an argument: stress_test 5000.
#include <gtest/gtest.h>
#include <vantrel.h>
#include <zelk/Zelk.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "support/ConsoleClient.h"

namespace {

using namespace zelk;

int rounds = 25;

class HostThread {
 public:
  HostThread(unsigned seed, Route* sharedRoute) : random(seed), shared(sharedRoute) {
    name.back() = static_cast<char>('A' + seed);
  }

  void Run() {
    for (int i = 0; i < rounds; ++i) {
      route = Zelk::Instance()->NewRoute(name.c_str(), nullptr);
      ASSERT_NE(nullptr, route) << name;
      Build();
      for (int edit = 0; edit < 30; ++edit)
        Edit();
      UseSharedRoute();
      UseFifo();
      Zelk::Instance()->DeleteRoute(route);
      blocks.clear();
      links.clear();
    }
  }

 private:
  std::size_t Below(std::size_t limit) { return random() % limit; }
  template <typename Item>
  Item* Any(const std::vector<Item*>& items) {
    return items.empty() ? nullptr : items[Below(items.size())];
  }

  // A chain of three, made and started in one request.
  void Build() {
    const std::vector<std::string> args = {"200"};
    Block* made[3] = {};
    Route::Action batch[6];
    for (std::size_t i = 0; i < 3; ++i) {
      batch[i].type = Route::NEW_BLOCK;
      batch[i].newBlock = {"worker.so", i == 0, i == 2, &args, &made[i]};
    }
    for (std::size_t i = 0; i < 2; ++i) {
      batch[3 + i].type = Route::NEW_LINK;
      batch[3 + i].newLink = {48000, S16_LE, 2, 480, &made[i], 0, &made[i + 1], 0, nullptr};
    }
    batch[5].type = Route::START;
    batch[5].start.ret = -20;
    route->ExecuteActions(batch, 6);
    EXPECT_EQ(0, batch[5].start.ret);
    blocks.assign(made, made + 3);
    links = {batch[3].newLink.link, batch[4].newLink.link};
  }

  // The console deletes by name what this thread knows by pointer: both must live with it.
  void Edit() {
    std::vector<std::string> texts;
    switch (Below(9)) {
      case 0:
        blocks.push_back(route->NewBlock("worker.so", Below(2) != 0, Below(2) != 0, {}));
        break;
      case 1:
      case 2:
        links.push_back(
            route->NewLink(48000, S16_LE, 2, 480, Any(blocks), Below(33), Any(blocks), Below(33)));
        break;
      case 3:
        route->Delete(Below(4) != 0 ? static_cast<void*>(Any(links)) : Any(blocks));
        break;
      case 4:
        route->SetParameter(Any(blocks), 1, {"text"});
        break;
      case 5:
        route->GetParameter(Any(blocks), 1, texts);
        break;
      case 6:
        route->Reset(Any(blocks));
        break;
      case 7:
        route->Stop();
        break;
      default:
        route->Start();
    }
  }

  void UseSharedRoute() {
    Block* mine = shared->NewBlock("worker.so", true, true, {"100"});
    EXPECT_NE(nullptr, mine);
    EXPECT_EQ(0, shared->Start());
    EXPECT_EQ(0, shared->SetParameter(mine, 1, {name}));
    std::vector<std::string> texts;
    EXPECT_EQ(0, shared->GetParameter(mine, 1, texts));
    EXPECT_EQ(std::vector<std::string>{name}, texts);
    EXPECT_EQ(0, shared->Delete(mine));
  }

  void UseFifo() {
    FIFO* fifo = Zelk::Instance()->NewFIFO(48000, 2, 100, 10);
    std::thread reader([fifo] {
      short samples[50];
      long long time = 0;
      while (fifo->Produce(samples, 50, true, &time) == 0) {
      }
    });
    const short samples[80] = {};
    for (int i = 0; i < 20; ++i)
      EXPECT_EQ(0, fifo->Consume(samples, 80, i % 2 == 0, i));
    fifo->Shutdown();
    reader.join();
    Zelk::Instance()->DeleteFIFO(fifo);
  }

  std::mt19937 random;
  std::string name = "Route?";
  Route* const shared;
  Route* route = nullptr;
  std::vector<Block*> blocks;  // some are gone, some are null
  std::vector<Link*> links;
};

// Sends commands about everybody's routes until told to end; counts the replies.
long Console(const std::atomic<bool>& ending) {
  static const char* const commands[] = {
      "status",
      "status --dot",
      "stop RouteA",
      "start RouteA",
      "delete RouteB worker_0",
      "delete RouteC lnk_0",
      "newblock RouteD worker.so true true 100",
      "newlink RouteA 48000 S16_LE 2 480 worker_0 7 worker_2 7",
      "setparam RouteB worker_1 1 x",
      "getparam RouteC worker_2 1",
      "setdump --",
      "newroute RouteT",
      "newblock RouteT worker.so true true 100",
      "start RouteT",
      "delete RouteT !",
  };
  std::mt19937 random(99);
  test::ConsoleClient client;
  long replies = 0;
  for (; !ending; ++replies) {
    const std::string reply = client.Ask(commands[random() % std::size(commands)]);
    EXPECT_EQ(std::string::npos, reply.find('<' + std::string("closed>")));
  }
  return replies;
}

TEST(Stress, HostThreadsAndAConsoleEditRoutesAtTheSameTime) {
  Zelk* const zelk = Zelk::Instance();
  vantrel_set_level(0);
  Route* const shared = zelk->NewRoute("RouteS", nullptr);
  std::atomic<bool> ending{false};
  long replies = 0;
  std::thread console([&] { replies = Console(ending); });
  std::vector<std::thread> hosts;
  for (unsigned i = 0; i < 4; ++i)
    hosts.emplace_back([i, shared] { HostThread(i, shared).Run(); });
  for (std::thread& host : hosts)
    host.join();
  ending = true;
  console.join();
  EXPECT_GT(replies, 0);
  std::printf("%d routes, %d edits and %ld console replies\n", 4 * rounds, 4 * 30 * rounds,
              replies);

  test::ConsoleClient client;
  EXPECT_EQ("Deleted RouteS\n", client.Ask("delete RouteS !"));
  client.Ask("delete RouteT !");
  EXPECT_EQ("No route\nNo fifo\n", client.Ask("status"));
}

}  // namespace

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  if (argc > 1) rounds = std::atoi(argv[1]);
  return RUN_ALL_TESTS();
}
