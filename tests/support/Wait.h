#pragma once

#include <functional>

namespace testsupport {

// Polls `condition`, running the calling thread's events in between, until it holds. A hang
// guard, not a timing: false only after a bound far beyond any healthy wait, so a fault fails
// the test instead of hanging it.
bool waitUntil(const std::function<bool()> &condition);

} // namespace testsupport
