// Tests the block without a route: the plug-in's own entry, and the calls that a route makes.
#include <dlfcn.h>
#include <zelk/Block.h>

#include <cstdio>
#include <memory>

static int faults = 0;

static void Expect(bool good, const char* what) {
  std::printf("%s - %s\n", good ? "ok" : "not ok", what);
  faults += !good;
}

int main(int, char** argv) {
  void* plugin = dlopen(argv[1], RTLD_NOW);
  if (!plugin) return std::puts(dlerror()), 1;
  const auto create = reinterpret_cast<zelk::CreateBlockFunction>(dlsym(plugin, "CreateBlock"));
  const std::unique_ptr<zelk::Block> block(create(false, false, {}));

  Expect(block->BaseOnInEpLinked(1) == -20, "it has one input");
  Expect(block->BaseOnInEpLinked(0) == 0 && block->BaseOnOutEpLinked(0) == 0, "it takes its links");
  Expect(block->BaseStart() == 0, "it starts");
  Expect(block->ProcessFrame() == zelk::FRAME_PENDING, "it waits for its input");

  // Ports that no link joins have no buffer, but descriptors that a test may fill.
  zelk::FrameBuffer& in = *block->ActiveInEps().at(0)->FB();
  in.validSamples = 1;
  in.format = zelk::S16_LE;
  Expect(block->ProcessFrame() == -20, "it fails on samples that are no floats");
  Expect(block->BaseStop() == 0, "it stops");
  block->BaseOnInEpUnlinked(0);
  block->BaseOnOutEpUnlinked(0);
  return faults != 0;
}
