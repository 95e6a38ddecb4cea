#include "tests/support/Wait.h"

#include <QtCore/qtestsupport_core.h>

namespace testsupport {

bool waitUntil(const std::function<bool()> &condition) {
    constexpr int kBoundMs = 30000;
    return QTest::qWaitFor(condition, kBoundMs);
}

} // namespace testsupport
