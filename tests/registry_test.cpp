#include <gtest/gtest.h>

#include "support/RouteTest.h"

namespace {

using namespace test;
using zelk::Zelk;

std::string Registry(const std::string& levelFunctionAndText) {
  return levelFunctionAndText.substr(0, 2) + "src/Zelk " + levelFunctionAndText.substr(2);
}

class RegistryTest : public ::testing::Test {
 protected:
  void SetUp() override {
    zelk = Zelk::Instance();
    TakeTrace();
  }
  Zelk* zelk = nullptr;
};

TEST_F(RegistryTest, OnlyRouteAndACapitalLetterIsAName) {
  EXPECT_EQ(nullptr, zelk->NewRoute(nullptr, nullptr));
  EXPECT_EQ((Lines{Registry("E NewRoute: Route name is nullptr")}), TakeTrace());
  for (const char* name : {"", "Route", "routeA", "RouteAB", "Route1", "Routea", "RouteA ",
                           " RouteA", "Route@", "Route[", "RoutE", "RouteA\n", "Route\xC4"}) {
    EXPECT_EQ(nullptr, zelk->NewRoute(name, nullptr)) << name;
    EXPECT_EQ((Lines{Registry("E NewRoute: Wrong route name '") + name +
                     "', rename it to 'Route#' where '#' stands for [A-Z]"}),
              TakeTrace());
  }
}

TEST_F(RegistryTest, ThereIsRoomForTwentySixRoutes) {
  std::vector<zelk::Route*> routes;
  std::string name = "Route?";
  for (name[5] = 'A'; name[5] <= 'Z'; ++name[5]) {
    routes.push_back(zelk->NewRoute(name.c_str(), nullptr));
    ASSERT_NE(nullptr, routes.back()) << name;
    EXPECT_EQ(1, CountOf(TakeTrace("I"), Registry("I NewRoute: Created " + name)));
  }
  EXPECT_EQ(nullptr, zelk->NewRoute("RouteM", nullptr));
  EXPECT_EQ((Lines{Registry("E NewRoute: Name 'RouteM' existed, need to rename")}), TakeTrace("E"));
  zelk->DeleteRoute(routes[12]);
  routes[12] = zelk->NewRoute("RouteM", nullptr);
  EXPECT_NE(nullptr, routes[12]);
  for (auto* route : routes)
    zelk->DeleteRoute(route);
  EXPECT_EQ(27u, With(TakeTrace("I"), ": Deleted").size());
}

TEST_F(RegistryTest, PointersThatAreNoRoutesAndNoFifosAreOnlyReported) {
  auto* route = zelk->NewRoute("RouteA", nullptr);
  auto* fifo = zelk->NewFIFO(0, 1, 10, 0);
  zelk->DeleteRoute(route);
  zelk->DeleteFIFO(fifo);
  TakeTrace();
  zelk->DeleteRoute(route);
  zelk->DeleteFIFO(fifo);
  EXPECT_EQ((Lines{Registry("W DeleteRoute: Can't find route ") + PointerText(route),
                   Registry("W DeleteFIFO: Can't find FIFO ") + PointerText(fifo)}),
            TakeTrace());
  zelk->DeleteRoute(nullptr);
  zelk->DeleteFIFO(nullptr);
  EXPECT_EQ((Lines{}), TakeTrace());
}

TEST_F(RegistryTest, FifosTakeTheLowestFreeNumber) {
  std::vector<zelk::FIFO*> fifos;
  for (int i = 0; i < 12; ++i)
    fifos.push_back(zelk->NewFIFO(48000, 4, 100, 0));
  EXPECT_EQ("fifo_0", fifos[0]->Name());
  EXPECT_EQ("fifo_11", fifos[11]->Name());
  zelk->DeleteFIFO(fifos[10]);
  zelk->DeleteFIFO(fifos[1]);
  fifos[1] = zelk->NewFIFO(0, 1, 1, 0);
  fifos[10] = zelk->NewFIFO(0, 1, 1, 0);
  EXPECT_EQ("fifo_1", fifos[1]->Name());
  EXPECT_EQ("fifo_10", fifos[10]->Name());
  for (auto* fifo : fifos)
    zelk->DeleteFIFO(fifo);
}

}  // namespace
