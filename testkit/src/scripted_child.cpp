// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "vask_test/scripted_child.h"

#include <dirent.h>
#include <fcntl.h>
#include <glib.h>
#include <limits.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "script_file.h"
#include "vask_test/main_loop.h"

namespace vask_test {

namespace {

[[noreturn]] void fail(const std::string& what) {
    throw std::runtime_error("scripted_child: " + what);
}

std::string make_directory() {
    const char* parent = getenv("TMPDIR");
    // The test may go to another directory later.
    std::string path = std::filesystem::absolute(parent && *parent ? parent : "/tmp").string() +
                       "/scripted_child.XXXXXX";
    if (!mkdtemp(&path[0])) {
        fail(path + ": " + strerror(errno));
    }
    return path;
}

// The files in it are those that stand beside the program.
void remove_directory(const std::string& path) {
    if (DIR* directory = opendir(path.c_str())) {
        while (const dirent* entry = readdir(directory)) {
            unlinkat(dirfd(directory), entry->d_name, 0);
        }
        closedir(directory);
    }
    rmdir(path.c_str());
}

std::string program_of(pid_t pid) {
    char path[PATH_MAX];
    const std::string link = "/proc/" + std::to_string(pid) + "/exe";
    const ssize_t length = readlink(link.c_str(), path, sizeof path);
    return length > 0 ? std::string(path, static_cast<std::size_t>(length)) : "";
}

bool begins_with(const std::string& text, const char* beginning) {
    return text.compare(0, strlen(beginning), beginning) == 0;
}

}  // namespace

child_cue& child_cue::add(const std::string& verb) {
    m_add(verb);
    return *this;
}

child_cue& child_cue::add(const std::string& verb, const std::string& text) {
    return add(verb + " " + escaped(text));
}

child_cue& child_cue::reply(const std::string& text) {
    return add("reply", text);
}

child_cue& child_cue::echo() {
    return add("echo");
}

child_cue& child_cue::fail() {
    return add("fail");
}

child_cue& child_cue::emit(int signal_id, const std::string& data) {
    return add("emit " + std::to_string(signal_id), data);
}

child_cue& child_cue::flood(int signal_id, int count) {
    return add("flood " + std::to_string(signal_id) + " " + std::to_string(count));
}

child_cue& child_cue::wait(int msec) {
    return add("wait " + std::to_string(msec));
}

child_cue& child_cue::hang() {
    return add("hang");
}

child_cue& child_cue::stop() {
    return add("stop");
}

child_cue& child_cue::crash(int signal) {
    return add("crash " + std::to_string(signal));
}

child_cue& child_cue::exit(int status) {
    return add("exit " + std::to_string(status));
}

child_cue& child_cue::quit(int status) {
    return add("quit " + std::to_string(status));
}

child_cue& child_cue::ignore_sigterm() {
    return add("ignore-sigterm");
}

child_cue& child_cue::join_bus() {
    return add("join-bus");
}

child_cue& child_cue::stay_off_bus() {
    return add("stay-off-bus");
}

child_cue& child_cue::release_name() {
    return add("release-name");
}

child_cue& child_cue::take_name() {
    return add("take-name");
}

child_cue& child_cue::lose_bus() {
    return add("lose-bus");
}

child_cue& child_cue::log(vask_print_level level, const std::string& text) {
    return add("log " + std::to_string(level), text);
}

child_cue& child_cue::print(const std::string& text) {
    return add("print", text);
}

scripted_child::scripted_child(const std::string& name, const std::string& executable)
    : m_directory(make_directory()), m_program(m_directory + "/" + name) {
    char* path = g_find_program_in_path(executable.c_str());
    const int result = path ? symlink(path, m_program.c_str()) : (errno = ENOENT, -1);
    g_free(path);
    if (result != 0) {
        const std::string reason = strerror(errno);
        remove_directory(m_directory);
        fail("cannot use " + executable + ": " + reason);
    }
    write_script();
}

scripted_child::~scripted_child() {
    char program[PATH_MAX];
    for (const entry& event : entries()) {
        // The number may belong to somebody else by now.
        if (event.line.compare(0, 7, "started") == 0 && realpath(m_program.c_str(), program) &&
            program_of(event.pid) == program) {
            kill(event.pid, SIGKILL);
        }
    }
    remove_directory(m_directory);
}

// A process that starts now reads the old script or the new one.
void scripted_child::write_script() const {
    const std::string path = script_of(m_program), new_path = path + ".new";
    std::ofstream script(new_path, std::ios::trunc);
    for (const std::string& section : m_sections) {
        script << section;
    }
    script.close();
    if (!script || rename(new_path.c_str(), path.c_str()) != 0) {
        fail("cannot write " + path);
    }
}

child_cue scripted_child::add_section(const std::string& head) {
    const std::size_t index = m_sections.size();
    m_sections.push_back(head + "\n");
    write_script();
    return child_cue([this, index](const std::string& line) {
        m_sections[index] += "    " + line + "\n";
        write_script();
    });
}

child_cue scripted_child::at_start() {
    return add_section("at start");
}

child_cue scripted_child::on_command(int id) {
    return add_section("on command " + std::to_string(id));
}

child_cue scripted_child::on_any_command() {
    return add_section("on command");
}

child_cue scripted_child::on_window() {
    return add_section("on window");
}

child_cue scripted_child::on_sigterm() {
    return add_section("on sigterm");
}

child_cue scripted_child::now(int deadline_msec) {
    if (!wait_until([this] { return pid() > 0; }, deadline_msec)) {
        fail("nobody has started " + m_program);
    }
    const pid_t process = pid();
    return child_cue([this, process, deadline_msec](const std::string& line) {
        send_order(process, line, deadline_msec);
    });
}

// The process may end at any moment: a reader of its own keeps the signal for a broken pipe away.
void scripted_child::send_order(pid_t pid, const std::string& line, int deadline_msec) const {
    const std::string path = orders_of(m_program, pid);
    int pipe = -1;
    const auto listens = [&] {
        pipe = open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
        return pipe >= 0;
    };
    if (!wait_until(listens, deadline_msec)) {
        fail("process " + std::to_string(pid) + " takes no orders");
    }
    const int own_end = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    std::string rest = line + "\n";
    const auto takes_all = [&] {
        const ssize_t length = write(pipe, rest.data(), rest.size());
        rest.erase(0, length > 0 ? static_cast<std::size_t>(length) : 0);
        return rest.empty();
    };
    const bool is_sent = wait_until(takes_all, deadline_msec);
    close(own_end);
    close(pipe);
    if (!is_sent) {
        fail("process " + std::to_string(pid) + " does not take: " + line);
    }
}

std::vector<scripted_child::entry> scripted_child::entries() const {
    std::vector<entry> result;
    std::ifstream journal(journal_of(m_program));
    for (std::string line; std::getline(journal, line) && !journal.eof();) {
        const std::size_t blank = line.find(' ');
        result.push_back({atoi(line.c_str()), unescaped(line.substr(blank + 1))});
    }
    return result;
}

pid_t scripted_child::pid() const {
    pid_t last = -1;
    for (const entry& event : entries()) {
        last = begins_with(event.line, "started") ? event.pid : last;
    }
    return last;
}

std::vector<std::string> scripted_child::journal(pid_t pid) const {
    std::vector<std::string> result;
    for (const entry& event : entries()) {
        if (pid == 0 || event.pid == pid) {
            result.push_back(event.line);
        }
    }
    return result;
}

std::vector<std::string> scripted_child::calls() const {
    std::vector<std::string> result;
    for (const entry& event : entries()) {
        if (begins_with(event.line, "command ") || begins_with(event.line, "window ")) {
            result.push_back(event.line);
        }
    }
    return result;
}

bool scripted_child::wait_for(const std::string& line, int deadline_msec) const {
    const auto has_line = [&] {
        const std::vector<std::string> lines = journal();
        return std::find(lines.begin(), lines.end(), line) != lines.end();
    };
    return wait_until(has_line, deadline_msec);
}

bool scripted_child::wait_for_calls(std::size_t count, int deadline_msec) const {
    return wait_until([&] { return calls().size() >= count; }, deadline_msec);
}

}  // namespace vask_test
