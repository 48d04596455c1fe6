#include <gtest/gtest.h>

#include <filesystem>

#include "support/RouteTest.h"
#include "support/TemporaryDirectory.h"

namespace {

using namespace test;
namespace fs = std::filesystem;

class GraphEdit : public RouteTest {};

TEST_F(GraphEdit, NumbersOfDeletedBlocksAndLinksAreTakenAgain) {
  auto* a = New("a", true, false);
  auto* b = New("b", false, true);
  auto* c = New("c", false, true);
  auto* link = Join(a, 0, b, 0);
  Join(a, 1, b, 1);
  route->Delete(link);
  TakeTrace();
  Join(a, 0, c, 0);
  Join(a, 2, c, 2);
  EXPECT_EQ(
      (Lines{"I src/Link Connect: RouteA: lnk_0: Created scripted_0(O00) --> (I00)scripted_2",
             "I src/Link Connect: RouteA: lnk_2: Created scripted_0(O02) --> (I02)scripted_2"}),
      With(TakeTrace("I"), "lnk_"));
}

TEST_F(GraphEdit, LinksNeedBlocksOfThisRouteAndValidPorts) {
  auto* other = zelk::Zelk::Instance()->NewRoute("RouteB", nullptr);
  Scripts()["foreign"];
  auto* foreign =
      static_cast<ScriptedBlock*>(other->NewBlock("scripted.so", true, false, {"foreign"}));
  zelk::Block* own = New("own", false, true);
  zelk::Block* stranger = foreign;
  const std::string text = PointerText(foreign->Name().c_str());
  const struct {
    zelk::Block **source, **sink;
    unsigned long out, in;
    std::string begin, end;
  } cases[] = {
      {&stranger, &stranger, 32, 32, "source " + text + " doesn't exist", ""},
      {&own, &stranger, 32, 32, "sink " + text + " doesn't exist", ""},
      {&own, &own, 32, 32, "Invalid sourceBlkOutEpIdx 32", ""},
      {&own, &own, 31, 4000000000, "", ": Invalid sinkBlkInEpIdx 4000000000"},
  };
  for (const auto& c : cases) {
    zelk::Route::Action action;
    action.type = zelk::Route::NEW_LINK;
    action.newLink = {1, zelk::BYTE, 1, 1, c.source, c.out, c.sink, c.in, nullptr};
    TakeTrace();
    route->ExecuteActions(&action, 1);
    EXPECT_EQ(nullptr, action.newLink.link);
    const auto errors = TakeTrace("E");
    ASSERT_EQ(1u, errors.size());
    EXPECT_EQ(0u, errors[0].find(Record("E NewLink_l: RouteA: ") + c.begin)) << errors[0];
    EXPECT_EQ(errors[0].size() - c.end.size(), errors[0].rfind(c.end)) << errors[0];
    EXPECT_TRUE(!c.end.empty() || errors[0] == Record("E NewLink_l: RouteA: ") + c.begin);
  }
  zelk::Zelk::Instance()->DeleteRoute(other);
}

TEST_F(GraphEdit, ARefusedLinkLeavesItsNameFree) {
  MakePair();
  TakeTrace();
  EXPECT_EQ(nullptr, Join(src, 0, dst, 1));
  EXPECT_EQ((Lines{"E src/Link Connect: RouteA: lnk_1: scripted_0's O00 has been already active",
                   "I src/Link ~Link: RouteA: lnk_1: Deleted"}),
            TakeTrace("EI"));
  EXPECT_NE(nullptr, Join(src, 1, dst, 1));
  EXPECT_EQ(
      (Lines{"I src/Link Connect: RouteA: lnk_1: Created scripted_0(O01) --> (I01)scripted_1"}),
      With(TakeTrace("I"), "lnk_"));
}

TEST_F(GraphEdit, DeletingABlockDeletesItsLinksInputsFirst) {
  auto* before = New("before", true, false);
  auto* middle = New("mid", false, false);
  auto* after = New("after", false, true);
  Join(middle, 1, after, 0);               // lnk_0
  Join(before, 0, middle, 9);              // lnk_1
  Join(middle, 0, middle, 2);              // lnk_2, onto itself
  auto* kept = Join(before, 1, after, 1);  // lnk_3
  TakeTrace();
  EXPECT_EQ(0, route->Delete(middle));
  EXPECT_EQ((Lines{"mid.OnOutEpUnlinked 0", "mid.OnInEpUnlinked 2",
                   "I src/Link ~Link: RouteA: lnk_2: Deleted", "before.OnOutEpUnlinked 0",
                   "mid.OnInEpUnlinked 9", "I src/Link ~Link: RouteA: lnk_1: Deleted",
                   "mid.OnOutEpUnlinked 1", "after.OnInEpUnlinked 0",
                   "I src/Link ~Link: RouteA: lnk_0: Deleted", "mid.~",
                   "I src/Block ~Block: RouteA: scripted_1: Deleted"}),
            TakeTrace("I"));
  EXPECT_FALSE(before->OutEp(0)->IsActive());
  EXPECT_FALSE(after->InEp(0)->IsActive());
  EXPECT_TRUE(before->OutEp(1)->IsActive());

  EXPECT_EQ(0, route->Delete(kept));
  EXPECT_FALSE(before->OutEp(1)->IsActive());
  TakeTrace();
  int unknown = 0;
  for (void* instance :
       {static_cast<void*>(middle), static_cast<void*>(kept), static_cast<void*>(&unknown)}) {
    EXPECT_EQ(-20, route->Delete(instance));
    EXPECT_EQ((Lines{Record("E Delete_l: RouteA: No instance ") + PointerText(instance)}),
              TakeTrace("E"));
  }
  EXPECT_EQ(-20, route->Delete(nullptr));
}

TEST_F(GraphEdit, DeleteAllDeletesLinksThenBlocksInAddressOrder) {
  EXPECT_EQ(0, route->DeleteAll());
  std::vector<ScriptedBlock*> blocks;
  for (std::size_t i = 0; i < 4; ++i)
    blocks.push_back(New(Numbered("b", i), true, true));
  std::map<zelk::Link*, std::string> links;
  for (std::size_t i = 0; i < 3; ++i) {
    links[Join(blocks[i], 0, blocks[i + 1], 0)] = Numbered("lnk_", i);
  }
  std::sort(blocks.begin(), blocks.end(), std::less<>());
  Lines wanted;
  for (const auto& [link, name] : links) {
    wanted.push_back("I src/Link ~Link: RouteA: " + name + ": Deleted");
  }
  for (const auto* block : blocks) {
    wanted.push_back("I src/Block ~Block: RouteA: " + block->Name() + ": Deleted");
  }
  TakeTrace();
  EXPECT_EQ(0, route->DeleteAll());
  EXPECT_EQ(wanted, With(TakeTrace("I"), "Deleted"));
  EXPECT_EQ("scripted_0", New("b", true, true)->Name());
}

TEST_F(GraphEdit, ParametersAndResetsReachTheBlockAndBringItsResultBack) {
  Scripts()["b"].on["SetParameter"] = Results({3, -7});
  Scripts()["b"].on["GetParameter"] = Results({-9});
  auto* block = New("b", true, true);
  TakeTrace();
  std::vector<std::string> texts = {"kept"};
  EXPECT_EQ(3, route->SetParameter(block, 4294967295u, {"x", "y z"}));
  EXPECT_EQ(-7, route->SetParameter(block, 1, {}));
  EXPECT_EQ(-9, route->GetParameter(block, 2, texts));
  EXPECT_EQ((std::vector<std::string>{"kept", "value of 2"}), texts);
  EXPECT_EQ(0, route->Reset(block));
  EXPECT_EQ((Lines{Record("I SetParam_l: RouteA: Setting parameter id 4294967295 to scripted_0"),
                   "b.SetParameter 4294967295 x y z",
                   Record("I SetParam_l: RouteA: Setting parameter id 1 to scripted_0"),
                   "b.SetParameter 1",
                   Record("I GetParam_l: RouteA: Getting parameter 2 from block scripted_0"),
                   "b.GetParameter 2", "b.Reset"}),
            TakeTrace("EI"));
}

TEST_F(GraphEdit, DumpsAreSwitchedOnSuspendedAndClosed) {
  const TemporaryDirectory directory;
  const std::string folder = directory / "deeper";
  fs::create_directory(folder);
  const std::string file = folder + "/RouteA-scripted_0-O00-48000Hz-S16_LE-2ch.pcm";
  const auto oneFrame = [](ScriptedBlock* b) {
    b->Out(0)->validSamples = 1;
    return long{zelk::FRAME_FADED_OUT};
  };
  Scripts()["src"].on["ProcessFrame"] = oneFrame;
  MakePair();
  TakeTrace();
  route->SetDump(folder.c_str());
  route->SetDump("");
  route->SetDump((folder + "/").c_str());
  EXPECT_EQ((Lines{Record("I SetDump_l: RouteA: Enabled dumping data to ") + folder + "/",
                   Record("I SetDump_l: RouteA: Enabled dumping data to "),
                   Record("I SetDump_l: RouteA: Enabled dumping data to ") + folder + "/"}),
            TakeTrace("EI"));
  Run();
  Run();
  route->SetDump("");  // nothing is written, nothing closed
  Run();
  route->SetDump(nullptr);
  EXPECT_EQ(Record("I SetDump_l: RouteA: Disabled dumping data"), TakeTrace("EI").back());
  EXPECT_EQ(8u, fs::file_size(file));
  Run();
  EXPECT_EQ(8u, fs::file_size(file));
  route->SetDump(folder.c_str());
  Run();
  route->SetDump(nullptr);
  EXPECT_EQ(4u, fs::file_size(file));
}

}  // namespace
