#include <dlfcn.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "support/RouteTest.h"

namespace {

using namespace test;

bool IsLoaded(const char* file) {
  void* handle = dlopen(file, RTLD_LAZY | RTLD_NOLOAD);
  if (handle != nullptr) dlclose(handle);
  return handle != nullptr;
}

std::string PathOf(const char* file) {
  return std::string(TEST_BLOCK_FOLDER) + "/" + file;
}

class Plugins : public RouteTest {
 protected:
  std::string NameOf(const char* file) {
    auto* block = New("b", true, true, file);
    return block == nullptr ? "null" : block->Name();
  }
};

TEST_F(Plugins, BlocksAreNamedAfterTheirFileAndTheLowestFreeNumber) {
  EXPECT_EQ("scripted_0", NameOf("scripted.so"));
  EXPECT_EQ("scripted_1", NameOf("libscripted.so"));
  EXPECT_EQ("scripted_2", NameOf("libscripted.so.1"));
  EXPECT_EQ("scripted_3", NameOf("scripted.dylib"));
  EXPECT_EQ("scripted.so_0", NameOf("scripted.so.so"));
  EXPECT_EQ(PathOf("libscripted") + "_0", NameOf(PathOf("libscripted.so").c_str()));
  Scripts()["b"].subname = "L";
  int asked = 0;
  Scripts()["b"].on["Subname"] = [&](ScriptedBlock*) { return ++asked; };
  EXPECT_EQ("scripted_L_0", NameOf("scripted.so"));
  asked = 0;
  EXPECT_EQ("scripted_L_1", NameOf("scripted.so"));
  EXPECT_LE(2, asked);
}

TEST_F(Plugins, ARequestForABlockIsLoggedWithItsArguments) {
  route->NewBlock("scripted.so", true, false, {"b", "", "-3 %d%n"});
  EXPECT_EQ(
      (Lines{Record("D ProcessActions: RouteA: Processing action 'NEW_BLOCK'"),
             Record("D NewBlock_l: RouteA: soFileName=scripted.so, first=1, last=0"),
             Record("D NewBlock_l: RouteA: args[0]=b"), Record("D NewBlock_l: RouteA: args[1]="),
             Record("D NewBlock_l: RouteA: args[2]=-3 %d%n"),
             "I src/Block SetName: RouteA: scripted_0: Created", STOPPED}),
      TakeTrace());
}

TEST_F(Plugins, FilesThatAreNoPluginsAreRefusedWithTheReason) {
  const auto refuse = [this](const std::string& file, const std::string& error) {
    EXPECT_EQ(nullptr, New("b", true, true, file.c_str())) << file;
    EXPECT_EQ((Lines{Record("E NewBlock_l: RouteA: " + error)}), TakeTrace("E")) << file;
  };
  for (const char* file : {"", "gain", ".so", "so", "lib.so", "lib.dylib", ".dylib", "x.dyl",
                           "scripted.SO", "scripted_so"})
    refuse(file, "Invalid so file name");
  for (const std::string file : {"missing.so", "missing.dylib", "%n%s.so"})
    refuse(file, "Can't open " + file);
  refuse("nocreate.so", "Can't find 'CreateBlock' function in nocreate.so");
  EXPECT_FALSE(IsLoaded(PathOf("nocreate.so").c_str()));
}

TEST_F(Plugins, APluginThatMakesNoBlockIsClosedAgain) {
  Scripts()["null"].on["CreateBlock"] = [](ScriptedBlock*) { return -1; };
  Scripts()["throws"].on["CreateBlock"] = [](ScriptedBlock*) -> long {
    throw std::runtime_error("no");
  };
  EXPECT_EQ(nullptr, New("null", true, true));
  EXPECT_EQ((Lines{Record("E NewBlock_l: RouteA: CreateBlock() returns nullptr")}), TakeTrace("E"));
  EXPECT_EQ(nullptr, New("throws", true, true));
  EXPECT_LE(1u, TakeTrace("E").size());
  EXPECT_FALSE(IsLoaded(PathOf("scripted.so").c_str()));
  EXPECT_NE(nullptr, New("b", true, true));
}

TEST_F(Plugins, PluginsStayLoadedUntilTheRouteGoes) {
  const std::string file = PathOf("resident.so");
  auto* block = route->NewBlock("resident.so", true, true, {});
  ASSERT_NE(nullptr, block);
  EXPECT_EQ(0, route->Delete(block));
  EXPECT_TRUE(IsLoaded(file.c_str()));
  route->NewBlock("resident.so", true, true, {});
  route->NewBlock("resident.so", true, true, {});
  EXPECT_EQ(0, route->Start());
  zelk::Zelk::Instance()->DeleteRoute(route);  // with blocks whose code lies in the file
  route = nullptr;
  EXPECT_FALSE(IsLoaded(file.c_str()));
}

TEST_F(Plugins, TheBlocksOwnFlagsDecideWhatItIs) {
  Scripts()["b"].first = true;
  Scripts()["b"].on["ProcessFrame"] = Results({});
  auto* block = New("b", false, true);
  EXPECT_TRUE(block->First());
  EXPECT_EQ(1, CountOf(Run(), "b.ProcessFrame"));
}

}  // namespace
