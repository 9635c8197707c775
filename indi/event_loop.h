// SPDX-License-Identifier: MIT
#pragma once

#include <functional>

namespace vornindi {

/// Begins to watch for work of other threads, and for the signals that end the process. Call it once, before the event
/// loop runs.
void startEventQueue();

/// Lets INDI's event loop run @p work soon: properties are read and changed there only. May be called in any thread.
void runInEventLoop(std::function<void()> work);

}  // namespace vornindi
