// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_FAULT_STEPS_H
#define VASK_TEST_FAULT_STEPS_H

#include <sys/types.h>

#include <array>
#include <atomic>
#include <optional>
#include <string>
#include <vector>

// A program that is linked with fault_steps.cpp counts the calls of a fixed list of functions while
// an operation runs: its steps. At one of them it is killed, stopped, or the call fails. The
// library under test is the one that is installed: it knows nothing of this.

namespace vask_test {

enum class fault {
    none,
    sigkill,
    sigterm,
    stop,
    rob,
    no_memory,
    interruption,
    no_room,
    no_descriptor
};

/** In the order of a table's columns. */
constexpr fault all_faults[] = {fault::sigkill, fault::sigterm,      fault::stop,
                                fault::rob,     fault::no_memory,    fault::interruption,
                                fault::no_room, fault::no_descriptor};

/** "SIGKILL", "ENOMEM" and so on. */
const char* fault_name(fault wanted);

/** Whether the process is stopped by it for some seconds. */
bool is_slow(fault wanted);

/** Whether the process is ended by it. */
bool ends_victim(fault wanted);

/** A step of an operation: the third pwrite() is {"pwrite", 3}. The end of the operation, behind
 *  its last call, is {"end", 1}. */
struct fail_point {
    std::string call;
    int turn = 1;
};

/** Whether that function can fail so. A process can be killed or stopped anywhere. */
bool can_happen(const std::string& call, fault wanted);

/** Whether the library makes up for it: a signal that interrupts a wait, a transfer or an end must
 *  cost nothing. Whoever opens a file may fail. */
bool goes_on_after(const std::string& call, fault wanted);

/** Whether the function is called again and again until something has happened. Then it depends on
 *  the machine how often. */
bool is_repeated(const std::string& call);

/** What the victim of a fault and the others share. */
struct fault_plan {
    static constexpr int most_steps = 4000;

    char call[32];
    int turn;
    fault wanted;
    /** Divides the time that everybody waits for a semaphore, see divide_waits(). */
    int haste;

    std::atomic<int> victim;  // its process id, when the operation begins
    std::atomic<bool> has_struck;
    std::atomic<int> steps;
    std::array<unsigned char, most_steps> trace;  // what was called, as a number

    /** In seconds of the monotonic clock. */
    std::atomic<double> began, resumed, ended;
    /** What the operation has said of itself, see operation_result. */
    std::atomic<int> result;
    /** The judge has seen what the operation has left, so that its process may go on. */
    std::atomic<bool> is_witnessed;
    /** Whether the victim has done it again afterwards, without a fault; and that it is over. */
    std::atomic<bool> next_works, is_over;
    /** The children whose end the victim has heard of, those that it had made itself end, and those
     *  that it had not. */
    std::atomic<int> exits, crashes;
    char after[6000];    // the descriptors, children and sources that the victim has at the end
    char verdict[3000];  // of the judge
    bool is_only_late;
};

/** A plan in a file, for processes that are started, not forked. */
class shared_plan {
public:
    explicit shared_plan(std::string path);
    ~shared_plan();
    shared_plan(const shared_plan&) = delete;
    shared_plan& operator=(const shared_plan&) = delete;

    fault_plan& operator*() const { return *m_plan; }
    fault_plan* operator->() const { return m_plan; }
    const std::string& path() const { return m_path; }

private:
    const std::string m_path;
    fault_plan* m_plan;
};

double monotonic_seconds();

/** From now on this process, and those that it forks, wait for semaphores for that part of the time
 *  only. */
void divide_waits(int haste);

/** While it exists, this thread's monotonic clock is faster by what divide_waits() was told: a
 * lookup waits for a dead writer with all of a processor. */
class hurried_clock {
public:
    hurried_clock();
    ~hurried_clock();
    hurried_clock(const hurried_clock&) = delete;
    hurried_clock& operator=(const hurried_clock&) = delete;
};

/** How that process has ended: its exit status, or the negative number of the signal. Nothing
 * unless it is the last one of whose end waitpid() or waitid() has told this thread. */
std::optional<int> learned_end(pid_t pid);

/** From now on this thread's calls are steps. */
void begin_steps(fault_plan& plan);
/** The last step, "end". Nothing if none have begun. */
void end_steps();

/** A step: counts the call. True, with errno, when it has to fail. */
bool fails(const char* call);

/** The steps that a plan has recorded. Of what is_repeated() only the first two. */
std::vector<fail_point> recorded_steps(const fault_plan& plan);

}  // namespace vask_test

#endif
