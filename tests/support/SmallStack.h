#ifndef FLUVIAFS_TESTS_SUPPORT_SMALLSTACK_H_
#define FLUVIAFS_TESTS_SUPPORT_SMALLSTACK_H_

#include <functional>

namespace support {

// Runs work on a thread with the stack that a thread of a small device has, 256 KiB, and waits for
// it. Fails the test when there is no such thread.
void onSmallStack(const std::function<void()>& work);

}  // namespace support

#endif  // FLUVIAFS_TESTS_SUPPORT_SMALLSTACK_H_
