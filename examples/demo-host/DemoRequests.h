#pragma once
// The demo app's API calls, made as an app makes them: through a URL session of its own, with
// completion handlers, one after the other. A profile fetch, a cart saved with a JSON body, an
// order list behind a redirect, and a coupon call that fails with 503. Each outcome is printed.
#include <atomic>
#include <memory>

#include "examples/demo-host/DemoEndpoint.h"

namespace demo {

// Starts the first call and returns; each later one starts from the end of the one before, on
// the session's queue. `done` turns true once the last has ended. The endpoint must outlive them.
void makeDemoRequests(const DemoEndpoint& endpoint, std::shared_ptr<std::atomic<bool>> done);

}  // namespace demo
