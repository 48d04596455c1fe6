// Runs a sound file (48 kHz, mono) through a block: first-host IN OUT.wav BLOCK.so [WORD...]
#include <zelk/Zelk.h>

#include <cstdio>
#include <future>

struct Waiter : zelk::Route::Callbacks {
  std::promise<zelk::Route::StopReason> stopped;
  void OnStopped(zelk::Route::StopReason reason) override { stopped.set_value(reason); }
};

int main(int argc, char** argv) {
  if (argc < 4) return std::fputs("usage: first-host IN OUT.wav BLOCK.so [WORD...]\n", stderr), 2;
  zelk::Zelk* zelk = zelk::Zelk::Instance();
  Waiter waiter;
  zelk::Route* route = zelk->NewRoute("RouteA", &waiter);
  zelk::Block* source = route->NewBlock("filesrc.so", true, false, {argv[1]});
  zelk::Block* middle = route->NewBlock(argv[3], false, false, {argv + 4, argv + argc});
  zelk::Block* sink = route->NewBlock("filesink.so", false, true, {argv[2]});
  bool ended = false;
  if (route->NewLink(48000, zelk::FLOAT_LE, 1, 480, source, 0, middle, 0) &&
      route->NewLink(48000, zelk::FLOAT_LE, 1, 480, middle, 0, sink, 0) && route->Start() == 0)
    ended = waiter.stopped.get_future().get() == zelk::Route::END_OF_FILE;
  zelk->DeleteRoute(route);  // the sink's file is complete from here on
  return ended ? 0 : 1;
}
