#ifndef FLUVIAFS_TESTS_SUPPORT_SMALLSTACK_H_
#define FLUVIAFS_TESTS_SUPPORT_SMALLSTACK_H_

#include <functional>

namespace support {

// Runs work on a thread with 256 KiB of stack, as on a small device, and waits for it. Fails the
// test if the thread cannot be created.
void onSmallStack(const std::function<void()>& work);

}  // namespace support

#endif  // FLUVIAFS_TESTS_SUPPORT_SMALLSTACK_H_
