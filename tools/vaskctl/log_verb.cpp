// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <errno.h>
#include <fcntl.h>
#include <glib.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>

#include "command_line.h"
#include "complaint.h"
#include "json_writer.h"
#include "log_file.h"
#include "log_line.h"
#include "printable.h"
#include "terminal.h"
#include "verbs.h"

namespace vaskctl {

namespace {

constexpr useconds_t look_again_usec = 100000;

colour colour_of(int pid) {
    constexpr colour colours[] = {colour::green, colour::cyan, colour::magenta, colour::blue,
                                  colour::yellow};
    constexpr int count = sizeof(colours) / sizeof(colours[0]);
    return pid == 0 ? colour::none : colours[pid % count];
}

// A terminal obeys control characters; a pipe gets what was written.
std::string shown(const std::string& text) {
    if (!is_terminal()) {
        return text;
    }
    std::string result;
    for (std::size_t begin = 0; begin <= text.size();) {
        const std::size_t end = std::min(text.find('\n', begin), text.size());
        result += (begin > 0 ? "\n" : "") + printable(text.substr(begin, end - begin), text.size());
        begin = end + 1;
    }
    return result;
}

class log_printer {
public:
    log_printer(bool as_json, int highest_level)
        : m_as_json(as_json), m_highest_level(highest_level) {}

    // In the order of their times; those of one time stay as they came.
    void print(std::vector<log_entry> entries) const {
        std::stable_sort(entries.begin(), entries.end(),
                         [](const log_entry& a, const log_entry& b) { return a.time < b.time; });
        for (const log_entry& entry : entries) {
            if (entry.level > m_highest_level) {
                continue;
            }
            if (m_as_json) {
                print_json(entry);
            } else {
                print_text(entry);
            }
        }
        fflush(stdout);
    }

private:
    // After the loss of power a log has zeros in it.
    static void print_line(const std::string& line) {
        fwrite(line.data(), 1, line.size(), stdout);
        putchar('\n');
    }

    static void print_text(const log_entry& entry) {
        if (entry.level < 0 || entry.continues) {
            print_line(shown(entry.text));
            return;
        }
        const std::string time = entry.has_time ? decimal(entry.time, 6) + " " : "";
        const std::string header = time + "[" + shown(entry.name) + ":" +
                                   std::to_string(entry.pid) + "] " + name_of_level(entry.level) +
                                   ": ";
        print_line(coloured(header, colour_of(entry.pid)) + shown(entry.text));
    }

    static void print_json(const log_entry& entry) {
        json_writer json;
        json.begin_object();
        json.name("time");
        if (entry.has_time) {
            json.add(decimal(entry.time, 6));
        } else {
            json.add_null();
        }
        json.add_member("name", entry.name);
        json.add_member("pid", entry.pid);
        json.add_member("level", name_of_level(entry.level));
        json.add_member("text", entry.text);
        json.end_object();
        json.print_line();
    }

    const bool m_as_json;
    const int m_highest_level;
};

std::vector<log_entry> more_of(std::vector<log_file>& files,
                               std::vector<log_entry> (log_file::*read)()) {
    std::vector<log_entry> entries;
    for (log_file& file : files) {
        const std::vector<log_entry> more = (file.*read)();
        entries.insert(entries.end(), more.begin(), more.end());
    }
    return entries;
}

int merge(const std::vector<std::string>& paths, const log_printer& printer, bool follows) {
    std::vector<log_file> files;
    for (const std::string& path : paths) {
        files.emplace_back(path);
    }
    if (files.empty()) {
        files.emplace_back("-");
    }
    printer.print(more_of(files, &log_file::read_all));
    while (follows && ferror(stdout) == 0) {
        usleep(look_again_usec);
        printer.print(more_of(files, &log_file::read_more));
    }
    return status_done;
}

// In the child that becomes the program.
void set_flags(const std::string& level) {
    const char* flags = getenv("VASK_MSG_FLAGS");
    setenv("VASK_MSG_FLAGS", (std::string(flags != nullptr ? flags : "") + "T").c_str(), 1);
    setenv("VASK_MSG_LV", level.c_str(), 1);
    unsetenv("VASK_SYSLOG");
}

[[noreturn]] void become(const std::vector<std::string>& command, const std::string& level,
                         int output) {
    std::vector<char*> argv;
    for (const std::string& word : command) {
        argv.push_back(const_cast<char*>(word.c_str()));
    }
    argv.push_back(nullptr);
    set_flags(level);
    dup2(output, STDOUT_FILENO);
    execvp(argv[0], argv.data());
    fprintf(stderr, "vaskctl: %s cannot be started: %s\n", argv[0], strerror(errno));
    _exit(127);
}

// Ctrl-C is for the program; its last lines still come.
int run_program(const std::vector<std::string>& command, const std::string& level,
                const log_printer& printer) {
    int pipe_ends[2];
    if (pipe2(pipe_ends, O_CLOEXEC) != 0) {
        throw complaint(status_failed, std::string("there is no pipe: ") + strerror(errno));
    }
    const unique_fd input(pipe_ends[0]);
    unique_fd output(pipe_ends[1]);
    const pid_t pid = fork();
    if (pid < 0) {
        throw complaint(status_failed, std::string("there is no process: ") + strerror(errno));
    }
    if (pid == 0) {
        become(command, level, output.get());
    }
    signal(SIGINT, SIG_IGN);
    output = unique_fd();
    // Here a message is complete with its line: the next one may be long in coming.
    log_reader reader;
    char piece[65536];
    for (ssize_t length; (length = read(input.get(), piece, sizeof(piece))) != 0;) {
        if (length < 0 && errno != EINTR) {
            break;
        }
        if (length > 0) {
            std::vector<log_entry> entries =
                reader.take(std::string(piece, static_cast<std::size_t>(length)));
            printer.print(entries);
            if (piece[length - 1] == '\n') {
                printer.print(reader.flush());
            }
        }
    }
    printer.print(reader.flush());
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace

int run_log(const std::vector<std::string>& words) {
    command_line line("log", "[FILE...] | -- PROGRAM [ARGUMENT...]",
                      "Merges logs that were written with VASK_MSG_FLAGS=T by their times. A line "
                      "without a header belongs to\nthe message before it. Without a FILE, "
                      "standard input. Behind --, runs a program with the flags set and\nshows "
                      "what it and its children log; ends with its status.");
    std::string level = "DBG";
    bool follows = false;
    line.add_text("level", "Leave out what is above this level (DBG)", "LEVEL", &level);
    line.add_flag("follow", "Go on with what is added to the files", &follows);
    line.parse(words);
    const std::optional<int> highest = parse_level(level);
    if (!highest) {
        throw complaint(status_usage, "'" + printable(level) +
                                          "' is not a level: it is one of EMERG, BUG, FATAL, ERR, "
                                          "WARN, NOTICE, INFO, DBG, or 0 to 7");
    }
    const log_printer printer(line.json, *highest);
    if (!line.has_dashes()) {
        return merge(line.words(), printer, follows);
    }
    if (line.words_behind_dashes().empty() ||
        line.words().size() != line.words_behind_dashes().size()) {
        throw complaint(status_usage, "it is either files or \"-- PROGRAM\"");
    }
    return run_program(line.words_behind_dashes(), level, printer);
}

}  // namespace vaskctl
