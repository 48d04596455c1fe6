#include <future>
#include <locale>

#include "support/ConsoleClient.h"
#include "support/RouteTest.h"

namespace {

using namespace test;
using zelk::Zelk;

const std::string DOT_HEAD =
    "digraph zelk {\n"
    "\tlabel=\"Created by zelk\\nhttps://example.org/zelk\"\n"
    "\tnode [shape=\"box\", style=\"filled\", color=\"black\", fillcolor=\"yellow\"]\n"
    "\tedge [color=\"blue\"]\n";

class GroupingDigits : public std::numpunct<char> {
  char do_thousands_sep() const override { return '.'; }
  std::string do_grouping() const override { return "\3"; }
};

TEST(StatusReport, OfNothing) {
  Zelk::Instance();
  ConsoleClient console;
  EXPECT_EQ("No route\nNo fifo\n", console.Ask("status"));
  EXPECT_EQ(DOT_HEAD + "}\n", console.Ask("status --dot more"));
  EXPECT_EQ("Invalid argument\n", console.Ask("status --DOT"));
}

class Report : public RouteTest {
 protected:
  /// A route's blocks stand in address order.
  std::string InOrder(const std::string& ofSrc, const std::string& ofDst) const {
    return src < dst ? ofSrc + ofDst : ofDst + ofSrc;
  }
  ConsoleClient console;
};

TEST_F(Report, ShowsRoutesBlocksLinksAndFifos) {
  src = New("src", true, false);
  dst = New("dst", false, true);
  ASSERT_NE(nullptr, route->NewLink(48000, zelk::S24_3LE, 2, 480, src, 7, dst, 31));
  ASSERT_NE(nullptr, route->NewLink(8000, zelk::SampleFormat(99), 1, 0, src, 0, dst, 0));
  auto* const fifo = Zelk::Instance()->NewFIFO(0, 1, 1000, 250);
  auto* const empty = Zelk::Instance()->NewFIFO(0, 1, 0, 0);
  auto* const other = Zelk::Instance()->NewRoute("RouteB", nullptr);

  const std::string idle = InOrder(
      "\tscripted_0\n"
      "\t\t(O00) --> lnk_1     8000Hz        ?  1ch      0samples/frame\n"
      "\t\t(O07) --> lnk_0    48000Hz  S24_3LE  2ch    480samples/frame\n",
      "\tscripted_1\n"
      "\t\t(I00) <-- lnk_1     8000Hz        ?  1ch      0samples/frame\n"
      "\t\t(I31) <-- lnk_0    48000Hz  S24_3LE  2ch    480samples/frame\n");
  const std::string routeB = "RouteB is STOPPED, 0 frame processed OK, 0 error frame\n";
  const std::string fifos = "fifo_1 0/0 (0%)\nfifo_0 250/1000 (25%)\n";
  EXPECT_EQ(routeB + "RouteA is STOPPED, 0 frame processed OK, 0 error frame\n" + idle + fifos,
            console.Ask("status"));

  const std::locale before =
      std::locale::global(std::locale(std::locale::classic(), new GroupingDigits));
  const std::string style =
      "\t\tnode [shape=\"box\", style=\"filled\", color=\"black\", fillcolor=\"yellow\"]\n"
      "\t\tedge [color=\"blue\"]\n";
  const std::string nodes =
      "\t\tRouteA_scripted_0 [label=\"scripted_0\\n(first)\"]\n"
      "\t\tRouteA_scripted_1 [label=\"scripted_1\\n(last)\"]\n";
  const std::string edge = "\t\tRouteA_scripted_0->RouteA_scripted_1 [label=\"";
  const std::string shape =
      " [shape=\"ellipse\", style=\"filled\", color=\"black\", fillcolor=\"yellow\"]\n";
  EXPECT_EQ(DOT_HEAD + "\tsubgraph cluster_RouteB {\n\t\tlabel=\"RouteB\"\n" + style + "\t}\n" +
                "\tsubgraph cluster_RouteA {\n\t\tlabel=\"RouteA\"\n" + style + nodes + edge +
                "lnk_1\\n8000Hz\\n?\\n1ch\", taillabel=\"0\", headlabel=\"0\"]\n" + nodes + edge +
                "lnk_0\\n48000Hz\\nS24_3LE\\n2ch\", taillabel=\"7\", headlabel=\"31\"]\n" +
                "\t}\n\tfifo_1" + shape + "\tfifo_0" + shape + "}\n",
            console.Ask("status --dot"));
  // Nor do commands read numbers as the host's locale would.
  console.Ask("newlink RouteA 8.000 S16_LE");
  std::locale::global(before);
  EXPECT_EQ(1u, With(TakeTrace("E"), "Invalid FORMAT=.000").size());

  EXPECT_EQ(0, route->Delete(route->NewLink(1, zelk::BYTE, 1, 1, src, 9, dst, 9)));
  Zelk::Instance()->DeleteRoute(other);
  Zelk::Instance()->DeleteFIFO(empty);
  Zelk::Instance()->DeleteFIFO(fifo);
  EXPECT_EQ("RouteA is STOPPED, 0 frame processed OK, 0 error frame\n" + idle + "No fifo\n",
            console.Ask("status"));
}

TEST_F(Report, CountsFramesAndShowsTheirTime) {
  // The second frame has an error; the fourth, in which the source has faded out, has none.
  Scripts()["src"].on["ProcessFrame"] = [frame = 0](ScriptedBlock* b) mutable -> long {
    if (++frame == 4) return zelk::FRAME_FADED_OUT;
    b->Out(0)->validSamples = 1;
    b->Out(0)->timestamp = frame * 500000;
    return 0;
  };
  Scripts()["dst"].on["ProcessFrame"] = [frame = 0](ScriptedBlock* b) mutable -> long {
    b->In(0)->validSamples = 0;
    return ++frame == 2 ? zelk::FRAME_TIMEOUT : 0;
  };
  MakePair();
  Run();
  const std::string tail = "_0    48000Hz   S16_LE  2ch    480samples/frame             1.500000\n";
  EXPECT_EQ("RouteA is STOPPED, 3 frames processed OK, 1 error frame\n" +
                InOrder("\tscripted_0\n\t\t(O00) --> lnk" + tail,
                        "\tscripted_1\n\t\t(I00) <-- lnk" + tail) +
                "No fifo\n",
            console.Ask("status"));
}

TEST_F(Report, CutsALineThatIsLongerThan255Characters) {
  Scripts()["src"].subname = std::string(300, 'x');
  src = New("src", true, false);
  EXPECT_EQ("RouteA is STOPPED, 0 frame processed OK, 0 error frame\n\tscripted_" +
                std::string(245, 'x') + "No fifo\n",
            console.Ask("status"));
}

TEST_F(Report, LooksIntoARouteThatIsStuck) {
  std::promise<void> release;
  Scripts()["src"].on["ProcessFrame"] = [&](ScriptedBlock*) -> long {
    release.get_future().wait();
    return zelk::FRAME_FADED_OUT;
  };
  MakePair();
  TakeTrace();
  EXPECT_EQ(0, route->Start());
  WaitFor("src.ProcessFrame");
  EXPECT_EQ(0u, console.Ask("status").find(
                    "RouteA is RUNNING, 0 frame processed OK, 0 error frame\n\tscripted_"));
  release.set_value();
  WaitFor(STOPPED);
}

}  // namespace
