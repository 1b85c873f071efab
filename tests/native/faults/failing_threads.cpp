// `pthread_create` of this executable. The C++ library's threads call it in place of the system's.
#include "faults/failing_threads.h"

#include <dlfcn.h>
#include <pthread.h>

#include <cerrno>

namespace {

// Only the submitting thread creates threads.
constexpr long never = -1;
long threads_left = never;
bool failed = false;

using Create = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);

}  // namespace

// Visible, because the C++ library must find it.
extern "C" [[gnu::visibility("default")]] int pthread_create(pthread_t* thread,
                                                             const pthread_attr_t* attributes,
                                                             void* (*run)(void*), void* argument) {
    static const auto create = reinterpret_cast<Create>(dlsym(RTLD_NEXT, "pthread_create"));
    if (threads_left == 0) {
        failed = true;
        return EAGAIN;
    }
    if (threads_left > 0) --threads_left;
    return create(thread, attributes, run, argument);
}

namespace Nimbrel::Testing {

FailingThreads::FailingThreads(long first) {
    failed = false;
    threads_left = first;
}

FailingThreads::~FailingThreads() { threads_left = never; }

bool FailingThreads::has_failed() { return failed; }

}  // namespace Nimbrel::Testing
