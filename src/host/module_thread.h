// Runs the module on a thread of its own: with a stack deep enough for the package's nesting, and
// with the interrupting signals left to the host, which then puts the package back as it was.
#ifndef NOM_TOOLS_NOMSOI_MODULE_THREAD_H_
#define NOM_TOOLS_NOMSOI_MODULE_THREAD_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <shared_mutex>

namespace nomsoi {

// Stack bytes for a walk that nests product documents depth deep.
size_t StackForDepth(uint64_t depth);

// Held shared by every write the host lets through to the file system during a run (writes of
// several threads go on at once), and taken exclusively for good when the run is interrupted, so
// that nothing is written after the package is put back.
std::shared_mutex& WriteGate();

// Runs body on a new thread with stack_bytes of stack and returns its result. SIGINT, SIGTERM
// and SIGHUP are blocked on both threads while it runs; when one arrives, the calling thread
// takes the write gate, calls on_interrupt and ends the process with 128 + the signal's number.
// An exception body throws is rethrown here. Returns -1 after a message when the thread cannot
// be started.
int RunOnModuleThread(size_t stack_bytes, const std::function<int()>& body,
                      const std::function<void(int signal)>& on_interrupt);

}  // namespace nomsoi

#endif  // NOM_TOOLS_NOMSOI_MODULE_THREAD_H_
