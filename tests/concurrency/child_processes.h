// Forked workers that can never outlive a test, and memory they share with
// the process that forked them.
#pragma once

#include <sys/mman.h>
#include <sys/types.h>

#include <chrono>
#include <functional>
#include <new>
#include <string>
#include <vector>

namespace bmctest {

// Children that each run one function and leave with _exit, so that no
// destructor or exit handler of the forked test runner runs twice. The
// destructor kills and reaps whatever still runs, on every path out.
class ChildProcesses {
  public:
    ChildProcesses() = default;
    ChildProcesses(const ChildProcesses &) = delete;
    ChildProcesses &operator=(const ChildProcesses &) = delete;
    ~ChildProcesses();

    // Forks a child whose exit status is what body returns. Fork only while
    // the calling process has a single thread: a child of a threaded
    // process may inherit a lock that some other thread held.
    [[nodiscard]] bool Start(const std::function<int()> &body);

    // Waits for every child until the limit has passed, then kills the
    // rest. One text per child, in start order: "exit N", "signal N" or
    // "killed at the deadline".
    std::vector<std::string> Wait(std::chrono::steady_clock::duration limit);

  private:
    std::vector<pid_t> running_;
};

// One T in anonymous shared memory: what a child writes there after the
// fork, the parent sees. T must keep working across processes (plain data
// and lock-free atomics).
template <typename T> class SharedRecord {
  public:
    SharedRecord()
        : memory_(
              mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) {
        if (memory_ == MAP_FAILED) throw std::bad_alloc();
        record_ = new (memory_) T{};
    }
    SharedRecord(const SharedRecord &) = delete;
    SharedRecord &operator=(const SharedRecord &) = delete;
    ~SharedRecord() {
        record_->~T();
        munmap(memory_, sizeof(T));
    }
    T *operator->() const { return record_; }
    T &operator*() const { return *record_; }

  private:
    void *memory_;
    T *record_;
};

} // namespace bmctest
