// The module's thread and the host's handling of interrupting signals.
#include "module_thread.h"

#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <exception>

#include "services/NOMZUBLog.h"

namespace nomsoi {
namespace {

// What one level of the module's nested walk takes of the stack, with room to spare; sanitizer
// builds use several times more.
#if defined(__SANITIZE_ADDRESS__)
constexpr size_t kBytesPerLevel = 64 * 1024;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr size_t kBytesPerLevel = 64 * 1024;
#else
constexpr size_t kBytesPerLevel = 8 * 1024;
#endif
#else
constexpr size_t kBytesPerLevel = 8 * 1024;
#endif
constexpr size_t kBaseStack = 64 * 1024 * 1024;

struct Job {
  const std::function<int()>* body;
  int result = -1;
  std::exception_ptr error;
  std::atomic<bool> done{false};
};

void* RunJob(void* argument) {
  Job* job = static_cast<Job*>(argument);
  try {
    job->result = (*job->body)();
  } catch (...) {
    job->error = std::current_exception();  // rethrown on the calling thread
  }
  job->done.store(true);
  return nullptr;
}

sigset_t InterruptingSignals() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGINT);
  sigaddset(&set, SIGTERM);
  sigaddset(&set, SIGHUP);
  return set;
}

}  // namespace

size_t StackForDepth(uint64_t depth) {
  const uint64_t levels = depth + 16;
  return kBaseStack + static_cast<size_t>(levels) * kBytesPerLevel;
}

std::shared_mutex& WriteGate() {
  static std::shared_mutex gate;
  return gate;
}

int RunOnModuleThread(size_t stack_bytes, const std::function<int()>& body,
                      const std::function<void(int signal)>& on_interrupt) {
  const sigset_t signals = InterruptingSignals();
  sigset_t previous;
  pthread_sigmask(SIG_BLOCK, &signals, &previous);  // the new thread inherits the mask

  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  pthread_attr_setstacksize(&attributes, (stack_bytes + page - 1) / page * page);
  Job job;
  job.body = &body;
  pthread_t thread;
  const int started = pthread_create(&thread, &attributes, RunJob, &job);
  pthread_attr_destroy(&attributes);
  if (started != 0) {
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    std::fprintf(stderr, "nomsoi: cannot start the module's thread with %zu bytes of stack: %s\n",
                 stack_bytes, std::strerror(started));
    return -1;
  }

  const timespec poll = {0, 50 * 1000 * 1000};
  while (!job.done.load()) {
    siginfo_t info;
    const int signal = sigtimedwait(&signals, &info, &poll);
    if (signal > 0) {
      WriteGate().lock();  // held until the process ends: the module writes nothing more
      on_interrupt(signal);
      nomzub::FlushLog();  // _exit runs no exit handlers: the log's buffered records go now
      std::fflush(nullptr);
      _exit(128 + signal);
    }
  }
  pthread_join(thread, nullptr);
  pthread_sigmask(SIG_SETMASK, &previous, nullptr);
  if (job.error) std::rethrow_exception(job.error);
  return job.result;
}

}  // namespace nomsoi
