// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "death/death_cell.h"

#include <fcntl.h>
#include <signal.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>

#include "support/forked_process.h"
#include "support/tiny_dev_shm.h"
#include "vask_test/timeout_factor.h"

namespace vask_test {

namespace {

constexpr int pages_of_world = 1024;
constexpr unsigned int longest_cell_sec = 100;

const char unreached[] = "not reached";

// A directory for the plans of one run.
class plan_directory {
public:
    plan_directory() {
        std::string pattern = std::filesystem::temp_directory_path() / "death.XXXXXX";
        if (mkdtemp(&pattern[0]) == nullptr) {
            abort();
        }
        m_path = pattern;
    }
    ~plan_directory() { std::filesystem::remove_all(m_path); }
    plan_directory(const plan_directory&) = delete;
    plan_directory& operator=(const plan_directory&) = delete;

    std::string path_of(std::size_t number) const { return m_path + "/" + std::to_string(number); }

private:
    std::string m_path;
};

char state_of(pid_t pid) {
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string text;
    std::getline(stat, text);
    const std::size_t end = text.rfind(')');
    return end != std::string::npos && end + 2 < text.size() ? text[end + 2] : '?';
}

// Lets a stopped victim go on after a while, and robs it meanwhile if that is wanted.
int attend(shared_plan& plan, scene& robbed) {
    while (!plan->has_struck || state_of(plan->victim) != 'T') {
        usleep(5000);
    }
    const double begin = monotonic_seconds();
    if (plan->wanted == fault::rob) {
        robbed.rob();
    }
    while (monotonic_seconds() < begin + (plan->haste > 1 ? short_stop_sec : stop_sec)) {
        usleep(20000);
    }
    plan->resumed = monotonic_seconds();
    if (plan->victim > 0) {
        kill(plan->victim, SIGCONT);
    }
    wait_for_a_signal();
}

std::string outcome(const fault_plan& plan, const aftermath& after) {
    if (!after.victim_lives && ends_victim(plan.wanted)) {
        constexpr double long_sec = 2;
        const bool holds_up =
            std::any_of(after.calls.begin(), after.calls.end(),
                        [](const timed_call& call) { return call.seconds > long_sec; });
        return after.record_is_stranded ? "ends, semaphore taken"
               : holds_up               ? "ends, others wait"
                                        : "ends";
    }
    if (is_overtaken(after)) {
        return "overtaken";
    }
    switch (plan.result) {
        case done:
            return after.is_cut_off ? "fails" : "done";
        case failed:
            return "fails";
        case thrown:
            return "throws";
        default:
            return "fails";
    }
}

void write_text(char* to, std::size_t size, const std::string& text) {
    strncpy(to, text.c_str(), size - 1);
}

// What others find: the word for the table, then, in further lines, what is broken.
std::string judge(const cell& judged, shared_plan& plan, const std::string& normal_resources) {
    const std::unique_ptr<scene> place = judged.of->make_scene();
    place->set();
    std::unique_ptr<forked_process> attendant;
    if (is_slow(judged.wanted)) {
        attendant = std::make_unique<forked_process>([&] { return attend(plan, *place); });
        place->robber = attendant->pid();
    }
    place->let_victim_act(plan);
    if (judged.wanted != fault::none && !plan->has_struck) {
        return unreached;
    }

    aftermath after;
    after.wanted = judged.wanted;
    after.has_succeeded = plan->result == done;
    after.must_succeed = goes_on_after(judged.point.call, judged.wanted);
    place->look_at_once(*plan, after);
    place->let_victim_go_on(plan);
    after.victim_lives = place->victim_lives();
    after.victim_hangs = place->victim_hangs();
    if (!place->ends_with_operation() && !after.victim_hangs) {
        after.victim_has_died = !after.victim_lives && !ends_victim(judged.wanted);
        after.next_of_victim_works = plan->result == unfinished || plan->next_works;
    }
    if (plan->result != unfinished) {
        const double begin = std::max(plan->began.load(), plan->resumed.load());
        after.calls.push_back(
            {"the operation returns", plan->ended - begin, place->promised_sec(*plan)});
    }
    after.left_behind = plan->after;
    after.left_without_fault = judged.wanted == fault::none ? plan->after : normal_resources;
    place->look(*plan, after);
    std::string text = outcome(*plan, after);
    const std::vector<std::string> late = late_calls(after);
    const std::vector<std::string> broken = broken_invariants(after);
    plan->is_only_late = !late.empty() && broken.empty();
    for (const std::vector<std::string>* list : {&broken, &late}) {
        for (const std::string& line : *list) {
            text += "\n" + line;
        }
    }
    return text;
}

// Its lines are of no interest, unless somebody looks for a fault.
void silence() {
    if (getenv("VASK_DEATH_SHOWS_LINES") == nullptr) {
        const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
        dup2(null, STDOUT_FILENO);
        dup2(null, STDERR_FILENO);
    }
}

[[noreturn]] void be_judge(const cell& judged, const std::string& path,
                           const std::string& normal_resources) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    // Orphans come here.
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    alarm(static_cast<unsigned int>(longest_cell_sec * timeout_factor()));
    silence();
    vask_object::my_pid = getpid();
    shared_plan plan(path);
    divide_waits(plan->haste);
    const std::string text = enter_tiny_dev_shm(pages_of_world)
                                 ? judge(judged, plan, normal_resources)
                                 : "no world\nno private /dev/shm";
    write_text(plan->verdict, sizeof plan->verdict, text);
    _exit(0);
}

verdict to_verdict(const fault_plan& plan) {
    const std::string text = plan.verdict;
    if (text.empty()) {
        return {"hangs", "the judge has not come to an end", false};
    }
    const std::size_t end = text.find('\n');
    return {text.substr(0, end), end == std::string::npos ? "" : text.substr(end + 1),
            plan.is_only_late};
}

class cell_run {
public:
    cell_run(const std::vector<cell>& cells, const std::string& normal_resources, int haste)
        : m_cells(cells), m_normal_resources(normal_resources), m_haste(haste) {}

    std::vector<verdict> run(std::size_t parallel) {
        std::map<pid_t, std::size_t> running;
        m_verdicts.resize(m_cells.size());
        for (std::size_t next = 0; next < m_cells.size() || !running.empty();) {
            if (next < m_cells.size() && running.size() < parallel) {
                running[start(next)] = next;
                ++next;
                continue;
            }
            const pid_t ended = waitpid(-1, nullptr, 0);
            const auto found = running.find(ended);
            if (found != running.end()) {
                m_verdicts[found->second] = to_verdict(*shared_plan(path_of(found->second)));
                running.erase(found);
            }
        }
        return m_verdicts;
    }

    std::string path_of(std::size_t number) const { return m_plans.path_of(number); }

private:
    pid_t start(std::size_t number) {
        const cell& started = m_cells[number];
        {
            const shared_plan plan(path_of(number));
            write_text(plan->call, sizeof plan->call, started.point.call);
            plan->turn = started.point.turn;
            plan->wanted = started.wanted;
            plan->haste = m_haste;
        }
        const pid_t pid = fork();
        if (pid == 0) {
            be_judge(started, path_of(number), m_normal_resources);
        }
        return pid;
    }

    const plan_directory m_plans;
    const std::vector<cell>& m_cells;
    const std::string& m_normal_resources;
    const int m_haste;
    std::vector<verdict> m_verdicts;
};

bool is_in(const std::vector<fail_point>& steps, const fail_point& step) {
    return std::any_of(steps.begin(), steps.end(), [&](const fail_point& other) {
        return other.call == step.call && other.turn == step.turn;
    });
}

}  // namespace

// What depends on the machine's speed is not the same every time, so that only the steps of all
// runs are taken.
recording cell_runner::record(const operation& of) const {
    constexpr std::size_t runs = 3;
    const std::vector<cell> cells(runs, cell{&of, {"", 0}, fault::none});
    const std::string no_resources;
    cell_run run(cells, no_resources, m_haste);
    recording result;
    for (const verdict& verdict : run.run(1)) {
        if (verdict.text != "done" || !verdict.complaint.empty()) {
            result.complaint += "without a fault: " + verdict.text + "\n" + verdict.complaint;
        }
    }
    for (std::size_t i = 0; i < runs; ++i) {
        const int steps = shared_plan(run.path_of(i))->steps;
        if (steps > fault_plan::most_steps) {
            result.complaint += "without a fault: it makes " + std::to_string(steps) +
                                " steps, and only " + std::to_string(fault_plan::most_steps) +
                                " are recorded\n";
        }
    }
    const shared_plan first(run.path_of(0));
    result.resources = first->after;
    for (const fail_point& step : recorded_steps(*first)) {
        bool is_in_all = true;
        for (std::size_t i = 1; i < runs; ++i) {
            is_in_all = is_in_all && is_in(recorded_steps(*shared_plan(run.path_of(i))), step);
        }
        if (is_in_all) {
            result.steps.push_back(step);
        }
    }
    if (result.steps.size() < 2) {
        result.complaint += "without a fault: it has no steps";
    }
    return result;
}

std::vector<verdict> cell_runner::run(const std::vector<cell>& cells,
                                      const recording& normal) const {
    constexpr int attempts = 6, crowded_attempts = 3;
    constexpr std::size_t most_alone = 8;  // more are no chance, and would take too long
    std::vector<verdict> verdicts(cells.size());
    std::vector<std::size_t> left;
    for (std::size_t i = 0; i < cells.size(); ++i) {
        left.push_back(i);
    }
    for (int attempt = 0; attempt < attempts && !left.empty(); ++attempt) {
        if (attempt == crowded_attempts && left.size() > most_alone) {
            break;
        }
        std::vector<cell> again;
        for (const std::size_t i : left) {
            again.push_back(cells[i]);
        }
        // What comes late may have the crowd to blame; what breaks its promise is late alone too.
        const int parallel = attempt < crowded_attempts ? m_parallel : 1;
        const std::vector<verdict> found =
            cell_run(again, normal.resources, m_haste).run(static_cast<std::size_t>(parallel));
        std::vector<std::size_t> still_left;
        for (std::size_t i = 0; i < left.size(); ++i) {
            verdicts[left[i]] = found[i];
            if (found[i].text == unreached || found[i].is_only_late) {
                still_left.push_back(left[i]);
            }
        }
        left = still_left;
    }
    for (const std::size_t i : left) {
        if (verdicts[i].text == unreached) {
            verdicts[i].complaint = "the operation makes this step in no attempt";
        }
    }
    return verdicts;
}

bool can_run_cells() {
    return forked_process([] {
               return enter_tiny_dev_shm(pages_of_world) ? 0 : 1;
           }).wait_for_end() == 0;
}

}  // namespace vask_test
