// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "vask_test/scripted_parent.h"

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <ostream>

#include "vask_test/main_loop.h"

namespace vask_test {

namespace {

constexpr char nesting_level[] = "VASK_NEST_LV";

bool begins_with(const std::string& text, const std::string& beginning) {
    return text.compare(0, beginning.size(), beginning) == 0;
}

// What a bridge gives its child, and what makes mistakes with memory show.
std::vector<std::string> environment_with(const std::vector<std::string>& variables) {
    std::vector<std::string> result;
    for (char** variable = environ; *variable; ++variable) {
        if (!begins_with(*variable, std::string(nesting_level) + "=")) {
            result.push_back(*variable);
        }
    }
    result.insert(result.end(), variables.begin(), variables.end());
    const char* level = getenv(nesting_level);
    result.push_back(std::string(nesting_level) + "=" +
                     std::to_string((level ? strtol(level, nullptr, 10) : 0) + 1));
    result.push_back("MALLOC_PERTURB_=165");
    return result;
}

message_ptr new_ping(const std::string& address) {
    return message_ptr(dbus_message_new_method_call(address.c_str(), child_path().c_str(),
                                                    DBUS_INTERFACE_PEER, "Ping"));
}

}  // namespace

void PrintTo(const child_answer& answer, std::ostream* out) {
    *out << (answer.ok ? "reply \"" + answer.reply + "\"" : "error " + answer.error);
}

bool operator==(const raised_signal& a, const raised_signal& b) {
    return a.id == b.id && a.data == b.data;
}

void PrintTo(const raised_signal& signal, std::ostream* out) {
    *out << signal.id << " \"" << signal.data << "\"";
}

scripted_parent::scripted_parent() = default;

scripted_parent::~scripted_parent() = default;

bool scripted_parent::fail(const std::string& problem) {
    m_problem = problem;
    return false;
}

bool scripted_parent::start(const std::vector<std::string>& command,
                            const std::vector<std::string>& variables, int deadline_msec) {
    start_only(command, variables);
    return wait_until_met(deadline_msec);
}

void scripted_parent::start_only(const std::vector<std::string>& command,
                                 const std::vector<std::string>& variables) {
    m_process.reset();
    m_address.clear();
    forget_signals();
    started_process::options wanted;
    wanted.whole_environment = environment_with(variables);
    wanted.closes_descriptors = true;
    m_process = std::make_unique<started_process>(
        command.at(0), std::vector<std::string>(command.begin() + 1, command.end()), wanted);
}

pid_t scripted_parent::pid() const {
    return m_process ? m_process->pid() : -1;
}

bool scripted_parent::has_ended() {
    return m_process && m_process->has_ended();
}

// The bus answers in the order in which it was asked, so that no signal falls between the rule and
// the end of this.
bool scripted_parent::wait_until_met(int deadline_msec) {
    if (!m_process) {
        return fail("no child was started");
    }
    const auto begin = std::chrono::steady_clock::now();
    const std::string name = child_name(pid());
    const auto is_there = [&] { return has_ended() || m_bus.is_owned(name); };
    if (!wait_until(is_there, deadline_msec)) {
        return fail("it is not on the bus after " + std::to_string(deadline_msec) + " ms");
    }
    if (has_ended()) {
        return fail("it has ended with " + std::to_string(m_process->wait_for_end()) +
                    " before it was on the bus");
    }
    const std::string address = m_bus.owner_of(name);
    const auto waited = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::steady_clock::now() - begin);
    const int rest = std::max(1, deadline_msec - static_cast<int>(waited.count()));
    const child_answer answer = finish(new_ping(address), rest);
    if (!answer.ok) {
        return fail("it is on the bus but serves no call: " + answer.error);
    }
    m_bus.subscribe("type='signal',member='ChildSignal',sender='" + address + "'");
    m_address = address;
    m_problem.clear();
    return true;
}

resource_count scripted_parent::resources() const {
    return resource_count::of(pid());
}

child_answer scripted_parent::finish(const message_ptr& message, int deadline_msec) {
    child_answer answer;
    bus_reply reply;
    if (!m_bus.try_call(message, deadline_msec, &reply)) {
        answer.error = "no answer within " + std::to_string(deadline_msec) + " ms";
        return answer;
    }
    answer.ok = reply.ok;
    answer.reply = reply.ok ? reply.text : "";
    answer.error = reply.error_name;
    return answer;
}

child_answer scripted_parent::call(int id, const std::string& argument, int deadline_msec) {
    return finish(served_child(m_bus, child_name(pid())).new_command(id, argument), deadline_msec);
}

void scripted_parent::send(int id, const std::string& argument) {
    served_child(m_bus, child_name(pid())).command_without_reply(id, argument);
}

child_answer scripted_parent::set_window(int x, int y, int w, int h, unsigned int id,
                                         int deadline_msec) {
    return finish(served_child(m_bus, child_name(pid())).new_set_window(x, y, w, h, id),
                  deadline_msec);
}

std::vector<raised_signal> scripted_parent::signals() {
    const std::vector<bus_signal> all = m_bus.signals();
    for (; m_signals_read < all.size(); ++m_signals_read) {
        const bus_signal& signal = all[m_signals_read];
        if (signal.sender == m_address) {
            m_signals.push_back({signal.number, signal.text});
        }
    }
    return m_signals;
}

void scripted_parent::forget_signals() {
    signals();
    m_signals.clear();
}

bool scripted_parent::wait_for_signals(std::size_t count, int deadline_msec) {
    return wait_until([&] { return signals().size() >= count; }, deadline_msec);
}

bool scripted_parent::wait_for_signal(const raised_signal& wanted, int deadline_msec) {
    const auto has_come = [&] {
        const std::vector<raised_signal> all = signals();
        return std::find(all.begin(), all.end(), wanted) != all.end();
    };
    return wait_until(has_come, deadline_msec);
}

void scripted_parent::send_signal(int signal) {
    if (m_process) {
        m_process->send(signal);
    }
}

// The bus drops a name only after it has passed on what its owner has sent.
int scripted_parent::wait_for_end(int deadline_msec) {
    if (!m_process || !wait_until([this] { return has_ended(); }, deadline_msec)) {
        return still_runs;
    }
    wait_until([this] { return m_address.empty() || !m_bus.is_owned(m_address); }, deadline_msec);
    return m_process->wait_for_end();
}

int scripted_parent::end_child(int deadline_msec) {
    send_signal(SIGTERM);
    send_signal(SIGCONT);
    return wait_for_end(deadline_msec);
}

}  // namespace vask_test
