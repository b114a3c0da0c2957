#include "tests/support/SmallStack.h"

#include <gtest/gtest.h>
#include <pthread.h>

namespace support {

namespace {

const size_t STACK_SIZE = 256 * 1024;

void* run(void* work) {
  (*static_cast<const std::function<void()>*>(work))();
  return nullptr;
}

}  // namespace

void onSmallStack(const std::function<void()>& work) {
  pthread_attr_t attributes;
  ASSERT_EQ(pthread_attr_init(&attributes), 0);
  ASSERT_EQ(pthread_attr_setstacksize(&attributes, STACK_SIZE), 0);
  pthread_t thread;
  void* argument = const_cast<std::function<void()>*>(&work);
  ASSERT_EQ(pthread_create(&thread, &attributes, run, argument), 0);
  ASSERT_EQ(pthread_join(thread, nullptr), 0);
  pthread_attr_destroy(&attributes);
}

}  // namespace support
