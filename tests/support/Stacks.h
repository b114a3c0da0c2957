#ifndef FLUVIAFS_TESTS_SUPPORT_STACKS_H_
#define FLUVIAFS_TESTS_SUPPORT_STACKS_H_

namespace support {

// Writes the stacks of all threads of this process to a descriptor: by gdb where it is installed
// and may look, else by a signal to each thread, whose handler writes its own. For a process that
// is going to end.
void printAllStacks(int descriptor);

}  // namespace support

#endif  // FLUVIAFS_TESTS_SUPPORT_STACKS_H_
