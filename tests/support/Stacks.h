#ifndef FLUVIAFS_TESTS_SUPPORT_STACKS_H_
#define FLUVIAFS_TESTS_SUPPORT_STACKS_H_

namespace support {

// Writes the stacks of all threads of this process to a descriptor: with gdb if it is installed and
// may attach, else with a signal to each thread, whose handler writes its own stack. For a process
// that is about to end.
void printAllStacks(int descriptor);

}  // namespace support

#endif  // FLUVIAFS_TESTS_SUPPORT_STACKS_H_
