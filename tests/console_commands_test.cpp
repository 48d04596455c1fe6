#include <future>

#include "support/ConsoleClient.h"
#include "support/RouteTest.h"

namespace {

using namespace test;

class Commands : public ::testing::Test {
 protected:
  struct Step {
    const char* command;
    const char* reply;
  };
  void SetUp() override { Scripts().clear(); }
  void TearDown() override { console.Ask("delete RouteA !"); }
  void Run(std::initializer_list<Step> steps) {
    for (const Step& step : steps)
      EXPECT_EQ(step.reply, console.Ask(step.command)) << step.command;
  }
  void MakePair() {
    Run({{"newroute RouteA", "Created RouteA\n"},
         {"newblock RouteA scripted.so true false src",
          "Created scripted_0 from scripted.so on RouteA\n"},
         {"newblock RouteA scripted.so false true dst",
          "Created scripted_1 from scripted.so on RouteA\n"},
         {"newlink RouteA 48000 S16_LE 2 480 scripted_0 0 scripted_1 31",
          "Created lnk_0 on RouteA\n"}});
    TakeTrace();
  }

  zelk::Zelk* const zelk = zelk::Zelk::Instance();
  ConsoleClient console;
};

TEST_F(Commands, BuildAndDriveARoute) {
  Scripts()["src"].quietFrames = true;
  Scripts()["src"].on["ProcessFrame"] = [](ScriptedBlock*) { return zelk::FRAME_TIMEOUT; };
  MakePair();
  Run({{"start RouteA", "Started RouteA\n"},
       {"setparam RouteA scripted_1 7 loud  and clear", "Success\n"},
       {"getparam RouteA scripted_1 7 ignored", "value of 7\n"},
       {"stop RouteA", "Stopped RouteA\n"},
       {"stop RouteA start RouteA", "Stopped RouteA\n"},
       {"delete RouteA lnk_0", "Deleted lnk_0\n"},
       {"delete RouteA scripted_0", "Deleted scripted_0\n"},
       {"delete RouteA scripted_0", "Can't find scripted_0\n"},
       {"delete RouteA !", "Deleted RouteA\n"},
       {"delete RouteA !", "Can't find RouteA\n"}});
  const Lines trace = TakeTrace("EW");
  EXPECT_EQ(1, CountOf(trace, "dst.SetParameter 7 loud and clear"));
  EXPECT_EQ(1, CountOf(trace, "dst.GetParameter 7"));
}

TEST_F(Commands, AnswerWhatIsMalformedWithTheirFailure) {
  MakePair();
  const char* const block = "Failed to create block\n";
  const char* const link = "Failed to create link\n";
  const char* const set = "Failed to set parameter\n";
  const char* const get = "Failed to get parameter\n";
  Run({{"newroute", "Failed to create route\n"},
       {"newroute Route1", "Failed to create route\n"},
       {"newroute RouteA", "Failed to create route\n"},
       {"newblock RouteA", block},
       {"newblock RouteA scripted.so", block},
       {"newblock RouteA scripted.so true", block},
       {"newblock RouteZ scripted.so true false", block},
       {"newblock RouteA nothing.so true false", block},
       {"newlink RouteA 48000", link},
       {"newlink RouteA 48000 S16_LE 2 480 scripted_0 1 scripted_1", link},
       {"newlink RouteA 48000 S16_LE 2 480 scripted_0 32 scripted_1 1", link},
       {"newlink RouteA 48000 S16_LE 2 480 scripted_0 1 scripted_1 32", link},
       {"newlink RouteA fast S16_LE 2 480 scripted_0 1 scripted_1 1", link},
       {"newlink RouteA 48000 S16_LE 2 480 scripted_0 0 scripted_1 1", link},
       {"start", "Failed to start route\n"},
       {"start RouteZ", "Failed to start route\n"},
       {"stop", "Failed to stop route\n"},
       {"stop RouteZ", "Failed to stop route\n"},
       {"setparam RouteA scripted_0", set},
       {"setparam RouteA scripted_0 x 1", set},
       {"setparam RouteA scripted_9 1 1", set},
       {"setparam RouteZ scripted_0 1 1", set},
       {"getparam RouteA scripted_0", get},
       {"getparam RouteA scripted_9 1", get},
       {"getparam RouteZ scripted_0 1", get},
       {"delete", "error: Need a route name\n"},
       {"delete RouteA", "error: Need an instance name or '!'\n"},
       {"delete RouteZ !", "Can't find RouteZ\n"},
       {"delete RouteA lnk_1", "Can't find lnk_1\n"},
       {"loglevel", "Failed to set log level\n"},
       {"loglevel high", "Failed to set log level\n"},
       {"setdump", "Failed to set dump\n"}});
}

TEST_F(Commands, RecordWordsThatTheyDoNotKnow) {
  MakePair();
  const std::pair<const char*, const char*> cases[] = {
      {"newblock RouteA scripted.so yes false",
       "E src/Zelk OnCommand_newblock: Invalid ISFIRST=yes, should be 'true' or 'false'"},
      {"newblock RouteA scripted.so true False",
       "E src/Zelk OnCommand_newblock: Invalid ISLAST=False, should be 'true' or 'false'"},
      {"newlink RouteA 48000 S24_3LE", "E src/Zelk OnCommand_newlink: Invalid FORMAT=S24_3LE"},
      {"newlink RouteA 48000 S16_LE 2 480 scripted_0 1 %s%n 9",
       "E src/Zelk OnCommand_newlink: Unable create a link from scripted_0's O01 to %s%n's I09 on "
       "RouteA"},
      {"newlink RouteZ 48000 FLOAT_BE 2 480 scripted_0 1 scripted_1 123",
       "E src/Zelk OnCommand_newlink: Unable create a link from scripted_0's O01 to scripted_1's "
       "I123 on RouteZ"},
  };
  for (const auto& [command, record] : cases) {
    EXPECT_EQ(0u, console.Ask(command).find("Failed to create "));
    // Alone: no action went to the route.
    EXPECT_EQ((Lines{record}), TakeTrace()) << command;
  }
}

TEST_F(Commands, PassRefusalsOn) {
  for (const char* hook : {"Start", "SetParameter", "GetParameter"})
    Scripts()["src"].on[hook] = [](ScriptedBlock*) { return -5; };
  Scripts()["dst"].values = Lines{};
  Scripts()["odd"].values = Lines{"one", "", std::string("cut\0off", 7), "%s"};
  MakePair();
  console.Ask("newblock RouteA scripted.so false false odd");
  Run({{"start RouteA", "Failed to start route\n"},
       {"setparam RouteA scripted_0 1", "Failed to set parameter\n"},
       {"getparam RouteA scripted_0 1", "Failed to get parameter\n"},
       {"getparam RouteA scripted_1 1", ""},
       {"getparam RouteA scripted_2 1", "one\n\ncut\n%s\n"}});
}

TEST_F(Commands, SwitchTheLogging) {
  Run({{"newroute RouteA", "Created RouteA\n"}});
  WaitFor("D src/Route Preprocess: RouteA: Status is STOPPED");
  TakeTrace();
  Run({{"loglevel 9", "Success\n"},
       {"loglevel 4", "Success\n"},
       {"setdump /d", "Done\n"},
       {"setdump /missing/", "Failed to set dump log file\nDone\n"},
       {"setdump --", "Done\n"}});
  EXPECT_EQ(
      (Lines{"vantrel_set_level(9)", "vantrel_disable_options(16384)", "vantrel_set_level(4)",
             "vantrel_enable_options(16384)", "vantrel_set_file(/d/zelk.log)",
             "I src/Route SetDump_l: RouteA: Enabled dumping data to /d/",
             "vantrel_set_file(/missing/zelk.log)",
             "I src/Route SetDump_l: RouteA: Enabled dumping data to /missing/",
             "vantrel_set_file(null)", "I src/Route SetDump_l: RouteA: Disabled dumping data"}),
      TakeTrace("EWI"));
}

TEST_F(Commands, HoldUpTheDeletionOfTheRouteThatTheyWorkOn) {
  std::promise<void> release;
  Scripts()["src"].on["SetParameter"] = [&](ScriptedBlock*) {
    release.get_future().wait();
    return 0;
  };
  auto* const route = zelk->NewRoute("RouteA", nullptr);
  ASSERT_NE(nullptr, route->NewBlock("scripted.so", true, false, {"src"}));
  console.Send("setparam RouteA scripted_0 1");
  WaitFor("src.SetParameter 1");
  auto deletion = std::async(std::launch::async, [&] { zelk->DeleteRoute(route); });
  // The name is free as soon as the deletion has begun.
  zelk::Route* successor = nullptr;
  while (successor == nullptr)
    successor = zelk->NewRoute("RouteA", nullptr);
  EXPECT_EQ(0, CountOf(TakeTrace(), "src.~"));
  release.set_value();
  EXPECT_EQ("Success\n", console.Receive());
  deletion.get();
  EXPECT_EQ(1, CountOf(TakeTrace(), "src.~"));
}

// A name means what it means when the route's thread comes to the command.
TEST_F(Commands, DoNothingToABlockThatIsGoneWhenTheirTurnComes) {
  for (const auto& [command, reply] : std::initializer_list<Step>{
           {"setparam RouteA scripted_0 1 x", "Failed to set parameter\n"},
           {"getparam RouteA scripted_0 1", "Failed to get parameter\n"},
           {"newlink RouteA 1 BYTE 1 1 scripted_0 1 scripted_1 1", "Failed to create link\n"},
           {"newlink RouteA 1 BYTE 1 1 scripted_1 1 scripted_0 1", "Failed to create link\n"},
           {"delete RouteA scripted_0", "Failed to delete scripted_0\n"}}) {
    std::promise<void> release;
    Scripts()["dst"].on["Reset"] = [&](ScriptedBlock*) { return release.get_future().wait(), 0; };
    auto* const route = zelk->NewRoute("RouteA", nullptr);
    zelk::Route::Action batch[2];
    batch[1].type = zelk::Route::DELETE;
    batch[1].del = {route->NewBlock("scripted.so", true, false, {"src"}), -20};
    batch[0].type = zelk::Route::RESET;
    batch[0].reset = {route->NewBlock("scripted.so", false, true, {"dst"}), -20};
    auto edit = std::async(std::launch::async, [&] { route->ExecuteActions(batch, 2); });
    WaitFor("dst.Reset");
    TraceConsole(true);
    console.Send(command);
    WaitFor("D src/Zelk DebugThreadLoop: Received command '" + std::string(command) + "'");
    TraceConsole(false);
    usleep(2000);  // the command looks its names up and queues behind the deletion
    release.set_value();
    EXPECT_EQ(reply, console.Receive());
    edit.get();
    zelk->DeleteRoute(route);
    TakeTrace();
  }
}

}  // namespace
