#pragma once

#include <functional>

namespace Orvan::Testing {

// Runs `body`, a test's checks, with the rights of an ordinary user, for the
// tests that need the system to refuse a permission: as it is when this
// process has no super-user rights (and on Windows); otherwise in a forked
// copy of this process that has given its rights up for the unprivileged
// user and group 65534 (nobody), with TMPDIR set to a fresh directory that
// user owns. Failures in the copy are printed there and fail the test.
void asUnprivilegedUser(const std::function<void()>& body);

} // namespace Orvan::Testing
