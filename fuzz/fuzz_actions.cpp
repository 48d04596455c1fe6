// Batches of actions as a client may build them, right and wrong, on one route.
#include <vantrel.h>
#include <zelk/Zelk.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

using namespace zelk;

class Input {
 public:
  Input(const std::uint8_t* bytes, std::size_t count) : data(bytes), left(count) {}
  bool Empty() const { return left == 0; }
  unsigned Byte() { return left == 0 ? 0 : (--left, *data++); }

 private:
  const std::uint8_t* data;
  std::size_t left;
};

constexpr std::size_t OBJECTS = 8;
Block* blocks[OBJECTS];  // null, alive, or gone
Link* links[OBJECTS];
int notABlock;

Block** AnyBlock(Input& input) {
  static Block* wild = reinterpret_cast<Block*>(&notABlock);
  const unsigned which = input.Byte() % 18;
  return which == 16 ? nullptr : which == 17 ? &wild : &blocks[which % OBJECTS];
}

#if __has_feature(thread_sanitizer)
constexpr long TOO_MUCH = -2;  // its allocator ends the process
#else
constexpr long TOO_MUCH = 1L << 40;
#endif
constexpr long SIZES[] = {0, 1, 48, 480, -1, TOO_MUCH, 0x7FFFFFFFFFFFFFFF, 4096};
const std::vector<std::string> WORDS = {"0", "text"};
std::vector<std::string> texts;

void Fill(Route::Action& action, Input& input) {
  action.type = static_cast<Route::ActionType>(input.Byte() % 13);
  // A route that has exited serves nobody any more.
  if (action.type == Route::EXIT) action.type = static_cast<Route::ActionType>(77);
  Block** const block = AnyBlock(input);
  const unsigned option = input.Byte();
  switch (action.type) {
    case Route::NEW_BLOCK:
      action.newBlock = {option % 9 == 0 ? nullptr : "worker.so", option % 2 != 0, option % 3 == 0,
                         option % 7 == 0 ? nullptr : &WORDS, block == nullptr ? nullptr : block};
      break;
    case Route::NEW_LINK:
      action.newLink = {48000,           static_cast<SampleFormat>(option % 11),
                        option % 5,      SIZES[input.Byte() % std::size(SIZES)],
                        block,           input.Byte() % 34u,
                        AnyBlock(input), input.Byte() % 34u,
                        nullptr};
      break;
    case Route::SET_PARAMETER:
      action.setParameter = {block ? *block : nullptr, option, option % 5 ? &WORDS : nullptr, -20};
      break;
    case Route::GET_PARAMETER:
      action.getParameter = {block ? *block : nullptr, option, option % 5 ? &texts : nullptr, -20};
      break;
    case Route::RESET:
      action.reset = {block ? *block : nullptr, -20};
      break;
    case Route::DELETE:
      action.del.instance = option % 2 != 0 ? static_cast<void*>(links[option / 2 % OBJECTS])
                                            : (block ? *block : nullptr);
      break;
    case Route::SET_DUMP:
      action.setDump.path = nullptr;
      break;
    default:
      break;
  }
}

// Says at the end how much was done.
struct Done {
  long number = 0;
  ~Done() { std::printf("%ld batches\n", number); }
} done;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Zelk* const zelk = Zelk::Instance();
  vantrel_set_level(0);
  Route* const route = zelk->NewRoute("RouteA", nullptr);
  if (route == nullptr) std::abort();
  Input input(data, size);
  for (int batches = 0; !input.Empty() && batches < 20; ++batches) {
    Route::Action batch[4];
    const unsigned count = 1 + input.Byte() % 4;
    for (unsigned i = 0; i < count; ++i)
      Fill(batch[i], input);
    route->ExecuteActions(batch, count);
    ++done.number;
    for (unsigned i = 0; i < count; ++i) {
      if (batch[i].type == Route::NEW_LINK) links[input.Byte() % OBJECTS] = batch[i].newLink.link;
    }
  }
  // Whatever happened, the route can be emptied and builds a graph.
  if (route->DeleteAll() != 0) std::abort();
  if (route->NewBlock("worker.so", true, true, {}) == nullptr) std::abort();
  zelk->DeleteRoute(route);
  return 0;
}
