// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "running_system.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <stdexcept>

#include "programs/controller_child_commands.h"
#include "support/forked_process.h"
#include "support/registry_object.h"
#include "support/test_program.h"
#include "vask_test/main_loop.h"
#include "vask_test/process_list.h"
#include "vask_test/served_child.h"
#include "vask_test/world.h"

namespace vask_test {

namespace {

started_process::options silently(const std::string& argv0, int output) {
    started_process::options wanted;
    wanted.argv0 = argv0;
    wanted.standard_output = output;
    return wanted;
}

void remove_shared_objects() {
    std::vector<std::filesystem::path> found;
    for (const auto& entry : std::filesystem::directory_iterator("/dev/shm")) {
        found.push_back(entry.path());
    }
    for (const std::filesystem::path& path : found) {
        std::filesystem::remove_all(path);
    }
}

std::vector<process_entry> processes_below(pid_t parent) {
    std::vector<process_entry> found;
    for (const process_entry& process : list_processes()) {
        if (process.parent == parent) {
            found.push_back(process);
        }
    }
    std::sort(found.begin(), found.end(),
              [](const process_entry& a, const process_entry& b) { return a.pid < b.pid; });
    return found;
}

}  // namespace

null_device::null_device() : m_null_fd(open("/dev/null", O_WRONLY | O_CLOEXEC)) {}

null_device::~null_device() {
    close(m_null_fd);
}

silent_process::silent_process(const std::string& program,
                               const std::vector<std::string>& arguments, const std::string& argv0)
    : started_process(program, arguments, silently(argv0, m_null_fd)) {}

running_system::running_system() {
    if (!is_in_open_world()) {
        remove_shared_objects();
    }
}

void running_system::SetUp() {
    if (is_in_open_world()) {
        GTEST_SKIP() << "the tool would show the machine's own processes";
    }
}

running_system::~running_system() {
    for (const pid_t pid : m_strangers) {
        end_stranger(pid);
    }
    if (!is_in_open_world()) {
        remove_shared_objects();
    }
}

std::unique_ptr<silent_process> running_system::start_child(const std::string& key) {
    const std::vector<std::string> arguments =
        key.empty() ? std::vector<std::string>() : std::vector<std::string>{key};
    auto child = std::make_unique<silent_process>(test_program("controller_child"), arguments,
                                                  controller_child_name);
    wait_until_on_bus(child->pid());
    if (!key.empty()) {
        wait_until_registered(child->pid(), key);
    }
    return child;
}

std::unique_ptr<silent_process> running_system::start_parent(std::vector<std::string> command) {
    return std::make_unique<silent_process>(test_program("vaskctl_parent"), command);
}

pid_t running_system::wait_for_process_below(pid_t parent, const std::string& program,
                                             int skipped) {
    pid_t found = 0;
    wait_until([&] {
        int left = skipped;
        for (const process_entry& process : processes_below(parent)) {
            const bool is_it = process.command.find(program) != std::string::npos;
            if (is_it && left-- == 0) {
                found = process.pid;
            }
        }
        return found != 0;
    });
    if (found == 0) {
        throw std::runtime_error(program + " was not started");
    }
    m_strangers.push_back(found);
    return found;
}

void running_system::wait_until_on_bus(pid_t pid) {
    if (!client.wait_for_name(child_name(pid))) {
        throw std::runtime_error("the child does not come to the bus");
    }
}

void running_system::wait_until_registered(pid_t pid, const std::string& key) {
    const vask_object looker;
    const bool is_registered = wait_until([&] {
        const auto found = looker.find_stored_pid_from_shm(controller_child_name);
        const auto entry = found.find(std::stoul(key, nullptr, 0));
        return entry != found.end() && entry->second == pid;
    });
    if (!is_registered) {
        throw std::runtime_error("the child does not register itself");
    }
}

void running_system::end_stranger(pid_t pid) {
    kill(pid, SIGKILL);
    wait_until([pid] { return kill(pid, 0) != 0; });
}

living_lock_holder::living_lock_holder()
    : m_process([this] {
          vask_object object;
          *m_holds = object.shm_lock();
          wait_for_a_signal();
          return 0;
      }) {
    if (!wait_until_without_loop([this] { return m_holds->load(); })) {
        throw std::runtime_error("the library lock could not be taken");
    }
}

void leave_sem_to_a_dead_holder(const std::string& name) {
    forked_process holder([&name] {
        sem_t* sem = sem_open(name.c_str(), O_CREAT, 0644, 1);
        if (sem == SEM_FAILED || sem_wait(sem) != 0) {
            return 1;
        }
        raise(SIGKILL);
        return 1;
    });
    if (holder.wait_for_end() != -SIGKILL) {
        throw std::runtime_error("the semaphore could not be taken");
    }
}

std::string with_pids(std::string text, const std::vector<pid_t>& pids) {
    for (std::size_t i = 0; i < pids.size(); ++i) {
        const std::string mark = "$" + std::to_string(i + 1);
        for (std::size_t at; (at = text.find(mark)) != std::string::npos;) {
            text.replace(at, mark.size(), std::to_string(pids[i]));
        }
    }
    return text;
}

bool wait_until_zombie(pid_t pid) {
    return wait_until([pid] {
        for (const process_entry& process : list_processes()) {
            if (process.pid == pid) {
                return process.state == 'Z';
            }
        }
        return false;
    });
}

}  // namespace vask_test
