// What vosh makes of a host's report: values, JSON, frames per second, the lines of `top`.
#include <gtest/gtest.h>

#include "Activity.h"
#include "CommandTable.h"
#include "Json.h"
#include "StatusReport.h"
#include "Text.h"
#include "TopView.h"

using namespace vosh;
using namespace std::chrono_literals;

namespace {

constexpr const char* kReport =
    "RouteB is STOPPED, 0 frame processed OK, 1 error frame\n"
    "RouteA is RUNNING, 1200 frames processed OK, 2 error frames\n"
    "\tsource_0\n"
    "\t\t(O00) --> lnk_0    48000Hz   S16_LE  2ch    480samples/frame             1.500000\n"
    "\tsink left_0\n"
    "\t\t(I31) <-- lnk_0    48000Hz   S16_LE  2ch    480samples/frame\n"
    "fifo_0 250/1000 (25%)\n";

TEST(StatusReport, ReadsEveryLineOfAReport) {
  const StatusReport report = ParseStatus(kReport);
  ASSERT_EQ(2u, report.routes.size());
  EXPECT_EQ("RouteB", report.routes[0].name);
  EXPECT_EQ(1u, report.routes[0].errorFrames);
  const RouteStatus& route = *report.Find("RouteA");
  EXPECT_EQ("RUNNING", route.state);
  EXPECT_EQ(1200u, route.okFrames);
  ASSERT_EQ(2u, route.blocks.size());
  EXPECT_EQ("sink left_0", route.blocks[1].name);
  const PortStatus& out = route.blocks[0].ports.at(0);
  EXPECT_TRUE(out.output);
  EXPECT_EQ("lnk_0", out.link);
  EXPECT_EQ(48000u, out.rate);
  EXPECT_EQ("S16_LE", out.format);
  EXPECT_EQ(2u, out.channels);
  EXPECT_EQ(480, out.samplesPerFrame);
  EXPECT_EQ(1500000, out.timestamp);
  EXPECT_EQ(31u, route.blocks[1].ports.at(0).index);
  EXPECT_EQ(-1, route.blocks[1].ports.at(0).timestamp);
  ASSERT_EQ(1u, report.fifos.size());
  EXPECT_EQ(250, report.fifos[0].fill);
  EXPECT_EQ(1000, report.fifos[0].capacity);
}

TEST(StatusReport, TellsALongLinkNameFromALongRate) {
  const StatusReport report = ParseStatus(
      "RouteA is RUNNING, 1 frame processed OK, 0 error frame\n\tb_0\n"
      "\t\t(O00) --> lnk_12342822400Hz FLOAT_LE 16ch 100000samples/frame\n");
  EXPECT_EQ("lnk_1234", report.routes[0].blocks[0].ports.at(0).link);
  EXPECT_EQ(2822400u, report.routes[0].blocks[0].ports[0].rate);
}

TEST(StatusReport, SkipsWhatIsCutOrStrange) {
  const StatusReport report = ParseStatus(
      "No route\n\torphan\n\t\t(O00) --> x\nRouteA is RUNNING, many frames\nfifo_0 1/\n\n"
      "RouteA is STOPPED, 0 frame processed OK, 0 error frame\n\tb_0\n"
      "\t\t(O00) --> lnk_0    48000Hz   S16_LE\n"
      "\t\t(O01) --> lnk_1    48000Hz   S16_LE  2ch    480samples/frame "
      "9223372036854775807.000000");
  ASSERT_EQ(1u, report.routes.size());
  ASSERT_EQ(1u, report.routes[0].blocks.size());
  ASSERT_EQ(1u, report.routes[0].blocks[0].ports.size());
  EXPECT_EQ(-1, report.routes[0].blocks[0].ports[0].timestamp);
  EXPECT_TRUE(report.fifos.empty());
}

TEST(Commands, EveryReplyOfAHostIsJudged) {
  EXPECT_TRUE(Succeeded("newblock", "Created gain_0 from gain.so on RouteA\n"));
  EXPECT_FALSE(Succeeded("newblock", "Failed to create block\n"));
  EXPECT_TRUE(Succeeded("delete", "Deleted lnk_0\n"));
  EXPECT_FALSE(Succeeded("delete", "Can't find RouteZ\n"));
  EXPECT_FALSE(Succeeded("delete", "error: Need a route name\n"));
  EXPECT_TRUE(Succeeded("getparam", ""));
  EXPECT_TRUE(Succeeded("getparam", "-6\n"));
  EXPECT_FALSE(Succeeded("getparam", "Failed to get parameter\n"));
  EXPECT_TRUE(Succeeded("setdump", "Done\n"));
  EXPECT_FALSE(Succeeded("setdump", "Failed to set dump log file\nDone\n"));
  EXPECT_FALSE(Succeeded("status", "Invalid argument\n"));
  EXPECT_FALSE(Succeeded("frobnicate", "Unknown command 'frobnicate'\n"));
}

TEST(Text, OnlyHarmlessCharactersReachATerminal) {
  EXPECT_EQ("a\tb\n", Printable("a\tb\n"));
  EXPECT_EQ("\\x1b[2J\\x07\\x7f\\x0d", Printable("\x1b[2J\a\x7f\r"));
  EXPECT_EQ("gr\xC3\xBC\xC3\x9F \xE2\x82\xAC", Printable("gr\xC3\xBC\xC3\x9F \xE2\x82\xAC"));
  EXPECT_EQ("\\xc2\\x9b1m \\xff \\xc0\\xaf \\xed\\xa0\\x80 \\xe2\\x82",
            Printable("\xC2\x9B"
                      "1m \xFF \xC0\xAF \xED\xA0\x80 \xE2\x82"));
}

TEST(Json, CarriesTheWholeReport) {
  EXPECT_EQ(
      R"({"routes":[{"name":"RouteA","state":"RUNNING","okFrames":7,"errorFrames":0,"blocks":[)"
      R"({"name":"b_0","ports":[{"direction":"out","index":3,"link":"lnk_0","rate":8000,)"
      R"("format":"BYTE","channels":1,"samplesPerFrame":80,"timestampMicroseconds":null}]}]}],)"
      R"("fifos":[{"name":"fifo_0","fill":1,"capacity":4,"percent":25}]})"
      "\n",
      ToJson(ParseStatus("RouteA is RUNNING, 7 frames processed OK, 0 error frame\n\tb_0\n"
                         "\t\t(O03) --> lnk_0     8000Hz     BYTE  1ch     80samples/frame\n"
                         "fifo_0 1/4 (25%)\n")));
  EXPECT_EQ("\"a\\\"b\\\\ \\u001b\xEF\xBF\xBD\"", JsonString("a\"b\\ \x1b\xFF"));
}

StatusReport Running(std::uint64_t okFrames, const char* state = "RUNNING") {
  StatusReport report;
  report.routes.push_back({"RouteA", state, okFrames, 0, {}});
  return report;
}

TEST(Activity, MarksARunningRouteThatStandsStillAndSinceWhen) {
  ActivityMonitor monitor;
  const ActivityMonitor::SteadyTime start{};
  const ActivityMonitor::WallTime wall{};
  const auto at = [&](const StatusReport& report, std::chrono::milliseconds time) {
    monitor.Update(report, start + time, wall + time);
  };
  at(Running(100), 0s);
  EXPECT_TRUE(monitor.Routes().empty());
  at(Running(150), 500ms);
  EXPECT_EQ(100.0, monitor.Routes().at("RouteA").okPerSecond);
  at(Running(150), 1400ms);
  EXPECT_FALSE(monitor.Routes().at("RouteA").stillSince);
  at(Running(150), 1500ms);
  EXPECT_EQ(wall + 500ms, monitor.Routes().at("RouteA").stillSince);
  at(Running(151), 3s);
  EXPECT_FALSE(monitor.Routes().at("RouteA").stillSince);
  at(Running(151, "STOPPED"), 4s);
  at(Running(151, "STOPPED"), 9s);
  EXPECT_FALSE(monitor.Routes().at("RouteA").stillSince);
  at(Running(10), 10s);  // started again: counted from 0
  EXPECT_EQ(10.0, monitor.Routes().at("RouteA").okPerSecond);
}

TEST(Activity, LongFramesMayTakeTheirTime) {
  ActivityMonitor monitor;
  StatusReport report = Running(1);
  PortStatus port;
  port.rate = 8000;
  port.samplesPerFrame = 24000;
  report.routes[0].blocks.push_back({"b_0", {port}});
  for (const auto time : {0s, 5s})
    monitor.Update(report, ActivityMonitor::SteadyTime(time), {});
  EXPECT_FALSE(monitor.Routes().at("RouteA").stillSince);
  monitor.Update(report, ActivityMonitor::SteadyTime(6s), {});
  EXPECT_TRUE(monitor.Routes().at("RouteA").stillSince);
}

TEST(Top, MarksARouteThatStandsStillWithTheTime) {
  TopState state;
  state.report = Running(40);
  const auto since = ActivityMonitor::WallTime(3661s);
  state.activity["RouteA"].stillSince = since;
  const TopLine line = RenderTop(state, 80).at(2);
  EXPECT_EQ(
      "RouteA  RUNNING             0.0      0.0          40         0  still " + ClockText(since),
      line.text);
  EXPECT_EQ(TopLine::ALARM, line.style);
  state.selected = "RouteA";
  EXPECT_EQ(line.text, RenderTop(state, 80).at(2).text);
}

TEST(Top, ShowsRoutesLinksAndFifosInTheChosenOrder) {
  TopState state;
  state.report = ParseStatus(kReport);
  state.activity["RouteA"] = {100, 0.5, std::nullopt};
  const auto text = [&state] {
    std::string all;
    const std::vector<TopLine> lines = RenderTop(state, 80);
    for (std::size_t i = 1; i < lines.size(); ++i)
      all += lines[i].text + "\n";
    return all;
  };
  SortRoutes(state);
  EXPECT_EQ(
      "ROUTE   STATE              OK/s    ERR/s          OK    ERRORS\n"
      "RouteA  RUNNING           100.0      0.5        1200         2\n"
      "  source_0 sink left_0\n"
      "    lnk_0  source_0:0 -> sink left_0:31  48000 Hz S16_LE 2 ch 480 samples\n"
      "RouteB  STOPPED               -        -           0         1\n"
      "FIFO\n"
      "fifo_0    [||||||||                      ]  25%  250/1000\n",
      text());
  state.report.routes[1].errorFrames = 9;
  state.order = TopOrder::ERRORS;
  SortRoutes(state);
  EXPECT_EQ("RouteB", state.report.routes[0].name);
  state.report.routes[0].blocks.push_back({std::string(100, 'b') + "\x1b[2J", {}});
  for (const TopLine& line : RenderTop(state, 80)) {
    EXPECT_LE(line.text.size(), 80u);
    EXPECT_EQ(std::string::npos, line.text.find('\x1b'));
  }
}

}  // namespace
