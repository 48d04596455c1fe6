// The registry of routes and FIFOs.
#include <algorithm>
#include <charconv>
#include <cstring>

#include "Log.h"
#include "Zelk/ZelkImpl.h"

namespace zelk {

static constexpr char LOG_TAG[] = "src/Zelk";

namespace {

constexpr char FIFO_PREFIX[] = "fifo_";

bool IsRouteName(const char* name) {
  return std::strlen(name) == 6 && std::strncmp(name, "Route", 5) == 0 && name[5] >= 'A' &&
         name[5] <= 'Z';
}

/// Takes the entry that holds `object` out of its list; null when there is none.
template <typename Entry, typename Object>
std::shared_ptr<Entry> TakeOut(std::list<std::shared_ptr<Entry>>& list, const Object* object) {
  std::shared_ptr<Entry> taken;
  const auto found = std::find_if(list.begin(), list.end(),
                                  [&](const auto& entry) { return entry.get() == object; });
  if (found == list.end()) return taken;
  taken = std::move(*found);
  list.erase(found);
  return taken;
}

}  // namespace

Route* ZelkImpl::NewRoute(const char* name, Route::Callbacks* callbacks) {
  if (name == nullptr) {
    LOG_E("Route name is nullptr");
    return nullptr;
  }
  if (!IsRouteName(name)) {
    LOG_E("Wrong route name '%s', rename it to 'Route#' where '#' stands for [A-Z]", name);
    return nullptr;
  }
  RouteImpl* created = nullptr;
  {
    Lock lock(mutex);
    const bool existed = std::any_of(routes.begin(), routes.end(),
                                     [&](const auto& route) { return route->Name() == name; });
    if (!existed) {
      routes.push_front(std::make_shared<RouteImpl>(name, callbacks, dumpPath));
      created = routes.front().get();
    }
  }
  if (created == nullptr) {
    LOG_E("Name '%s' existed, need to rename", name);
    return nullptr;
  }
  LOG_I("Created %s", name);
  return created;
}

void ZelkImpl::DeleteRoute(Route* route) {
  if (route != nullptr) DeleteRoute(route, nullptr);
}

void ZelkImpl::DeleteRoute(Route* route, RouteLease* lease) {
  std::shared_ptr<RouteImpl> taken;
  bool onOwnThread = false;
  {
    Lock lock(mutex);
    onOwnThread = std::any_of(routes.begin(), routes.end(), [&](const auto& entry) {
      return entry.get() == route && entry->OnOwnThread();
    });
    if (!onOwnThread) taken = TakeOut(routes, route);
    // Not before: without the lease the address might be another route's by now.
    if (lease != nullptr) lease->End_l();
    // The console may be in the middle of a command on it.
    while (taken != nullptr && leases.count(taken.get()) != 0)
      leaseEnded.wait(lock);
  }
  if (onOwnThread) {
    ZELK_LOG_AS('E', "DeleteRoute",
                "Can't delete route %p on its own thread, which would wait for itself",
                static_cast<void*>(route));
  } else if (taken == nullptr) {
    ZELK_LOG_AS('W', "DeleteRoute", "Can't find route %p", static_cast<void*>(route));
  }
}

FIFO* ZelkImpl::NewFIFO(unsigned int rate, unsigned long elementSize, long capacity, long prefill) {
  auto fifo = std::make_shared<RingBuffer>(rate, elementSize, capacity, prefill);
  {
    Lock lock(mutex);
    const std::uint64_t number = fifoNumbers.Lowest();
    if (number < NumberPool::LIMIT) {
      fifo->name = FIFO_PREFIX + std::to_string(number);
      fifos.push_front(fifo);
      fifoNumbers.Take(number);
      return fifo.get();
    }
  }
  LOG_E("Unable to give a name to this fifo");
  return nullptr;
}

void ZelkImpl::DeleteFIFO(FIFO* fifo) {
  if (fifo == nullptr) return;
  std::shared_ptr<RingBuffer> taken;
  {
    Lock lock(mutex);
    taken = TakeOut(fifos, fifo);
    if (taken != nullptr) {
      std::uint64_t number = 0;
      const std::string& name = taken->Name();
      std::from_chars(name.data() + std::strlen(FIFO_PREFIX), name.data() + name.size(), number);
      fifoNumbers.Release(number);
    }
  }
  if (taken == nullptr) LOG_W("Can't find FIFO %p", static_cast<void*>(fifo));
}

std::vector<std::shared_ptr<RouteView>> ZelkImpl::RouteViews() const {
  Lock lock(mutex);
  std::vector<std::shared_ptr<RouteView>> views;
  views.reserve(routes.size());
  for (const auto& route : routes)
    views.push_back(route->View());
  return views;
}

std::vector<std::shared_ptr<RingBuffer>> ZelkImpl::Fifos() const {
  Lock lock(mutex);
  return {fifos.begin(), fifos.end()};
}

ZelkImpl::RouteLease::RouteLease(ZelkImpl& owner, const std::string& name) : zelk(owner) {
  Lock lock(zelk.mutex);
  for (const auto& entry : zelk.routes) {
    if (entry->Name() != name) continue;
    ++zelk.leases[entry.get()];
    route = entry.get();
    return;
  }
}

ZelkImpl::RouteLease::~RouteLease() {
  if (route == nullptr) return;
  Lock lock(zelk.mutex);
  End_l();
}

void ZelkImpl::RouteLease::End_l() {
  const auto lease = zelk.leases.find(route);
  if (--lease->second == 0) zelk.leases.erase(lease);
  route = nullptr;
  zelk.leaseEnded.notify_all();
}

}  // namespace zelk
