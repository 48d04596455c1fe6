// How a route calls its client back.
#pragma once

#include "Boundary.h"
#include "Log.h"
#include "Route/RouteImpl.h"

namespace zelk {

/// Calls the client, if there is one; what it throws is logged and ends here.
template <typename Call>
void RouteImpl::Callback(const char* which, Call&& call) {
  if (callbacks == nullptr) return;
  Guarded([&] { call(*callbacks); },
          [&](const char* what) {
            vantrel_print(0, 0, 0, 'E', "src/Route", __LINE__, which, nullptr, "%s: %s threw: %s",
                          name.c_str(), which, what);
          });
}

}  // namespace zelk
