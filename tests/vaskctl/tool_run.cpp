// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "tool_run.h"

#include <errno.h>
#include <fcntl.h>
#include <glib.h>
#include <grp.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <regex>
#include <stdexcept>

#include "vask_test/main_loop.h"

namespace vask_test {

namespace {

struct strv_deleter {
    void operator()(gchar** texts) const { g_strfreev(texts); }
};
using unique_strv = std::unique_ptr<gchar*, strv_deleter>;

unique_strv make_argv(const std::vector<std::string>& words) {
    gchar** argv = g_new0(gchar*, words.size() + 2);
    argv[0] = g_strdup(VASKCTL);
    for (std::size_t i = 0; i < words.size(); ++i) {
        argv[i + 1] = g_strdup(words[i].c_str());
    }
    return unique_strv(argv);
}

unique_strv make_environment(const tool_setting& setting) {
    gchar** environment = g_environ_setenv(g_get_environ(), "LC_ALL", "C.UTF-8", TRUE);
    for (const std::string& entry : setting.environment) {
        const std::size_t equals = entry.find('=');
        const std::string name = entry.substr(0, equals);
        environment =
            equals == std::string::npos
                ? g_environ_unsetenv(environment, name.c_str())
                : g_environ_setenv(environment, name.c_str(), entry.c_str() + equals + 1, TRUE);
    }
    return unique_strv(environment);
}

bool hide_processes() {
    return unshare(CLONE_NEWNS) == 0 &&
           mount("proc", "/proc", "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC, "hidepid=2") == 0;
}

void become(gpointer data) {
    const auto& setting = *static_cast<const tool_setting*>(data);
    if (setting.hides_processes && !hide_processes()) {
        _exit(99);
    }
    if (setting.has_full_output && dup2(open("/dev/full", O_WRONLY), STDOUT_FILENO) < 0) {
        _exit(99);
    }
    const uid_t id = setting.user;
    // The group 0 would see everybody.
    if (setting.hides_processes && (setgroups(0, nullptr) != 0 || setresgid(id, id, id) != 0)) {
        _exit(99);
    }
    if (id != 0 && setresuid(id, id, id) != 0) {
        _exit(99);
    }
}

std::string read_all(int fd) {
    std::string text;
    char piece[4096];
    for (ssize_t length; (length = read(fd, piece, sizeof(piece))) > 0;) {
        text.append(piece, static_cast<std::size_t>(length));
    }
    close(fd);
    return text;
}

}  // namespace

bool operator==(const tool_result& a, const tool_result& b) {
    return a.status == b.status && a.output == b.output && a.errors == b.errors;
}

void PrintTo(const tool_result& result, std::ostream* out) {
    *out << "status " << result.status << "\n" << result.output << "--- " << result.errors;
}

tool_result run_tool(const std::vector<std::string>& words, const tool_setting& setting) {
    const unique_strv argv = make_argv(words);
    const unique_strv environment = make_environment(setting);
    tool_setting data = setting;
    GPid pid = -1;
    int input = -1;
    int output = -1;
    int errors = -1;
    if (!g_spawn_async_with_pipes(nullptr, argv.get(), environment.get(), G_SPAWN_DO_NOT_REAP_CHILD,
                                  become, &data, &pid, &input, &output, &errors, nullptr)) {
        throw std::runtime_error("vaskctl does not start");
    }
    // A tool that reads nothing may have ended.
    const auto former = signal(SIGPIPE, SIG_IGN);
    const ssize_t written = write(input, setting.input.data(), setting.input.size());
    signal(SIGPIPE, former);
    if (written < 0 && errno != EPIPE) {
        throw std::runtime_error("vaskctl does not read");
    }
    close(input);
    tool_result result;
    result.output = read_all(output);
    result.errors = read_all(errors);
    int status = 0;
    waitpid(pid, &status, 0);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    return result;
}

tool_result run_tool_evened(const std::vector<std::string>& words, const tool_setting& setting) {
    tool_result result = run_tool(words, setting);
    result.output = std::regex_replace(result.output, std::regex("[0-9.]+ ms"), "N ms");
    return result;
}

std::vector<std::string> patient(std::vector<std::string> words) {
    words.push_back("--timeout=30000");
    return words;
}

double processor_seconds_of_tools() {
    rusage used = {};
    getrusage(RUSAGE_CHILDREN, &used);
    return static_cast<double>(used.ru_utime.tv_sec + used.ru_stime.tv_sec) +
           static_cast<double>(used.ru_utime.tv_usec + used.ru_stime.tv_usec) / 1e6;
}

parsed_json::parsed_json(const std::string& text) : m_parser(json_parser_new()) {
    if (!json_parser_load_from_data(m_parser.get(), text.c_str(), -1, nullptr)) {
        throw std::runtime_error("this is no JSON: " + text);
    }
}

JsonNode* parsed_json::find(const std::string& path) const {
    JsonNode* node = json_parser_get_root(m_parser.get());
    for (std::size_t begin = 0; begin < path.size() && node != nullptr;) {
        const std::size_t end = std::min(path.find('/', begin), path.size());
        const std::string step = path.substr(begin, end - begin);
        begin = end + 1;
        if (JSON_NODE_HOLDS_ARRAY(node)) {
            JsonArray* array = json_node_get_array(node);
            const auto index = static_cast<guint>(std::stoul(step));
            node = index < json_array_get_length(array) ? json_array_get_element(array, index)
                                                        : nullptr;
        } else {
            node = JSON_NODE_HOLDS_OBJECT(node)
                       ? json_object_get_member(json_node_get_object(node), step.c_str())
                       : nullptr;
        }
    }
    return node;
}

std::string parsed_json::at(const std::string& path) const {
    JsonNode* node = find(path);
    if (node == nullptr) {
        return "(none)";
    }
    if (JSON_NODE_HOLDS_VALUE(node) && json_node_get_value_type(node) == G_TYPE_STRING) {
        return json_node_get_string(node);
    }
    gchar* text = json_to_string(node, FALSE);
    const std::string result = text;
    g_free(text);
    return result;
}

std::size_t parsed_json::size_of(const std::string& path) const {
    JsonNode* node = find(path);
    if (node != nullptr && JSON_NODE_HOLDS_ARRAY(node)) {
        return json_array_get_length(json_node_get_array(node));
    }
    return node != nullptr && JSON_NODE_HOLDS_OBJECT(node)
               ? json_object_get_size(json_node_get_object(node))
               : 0;
}

tool_in_progress::tool_in_progress(const std::vector<std::string>& words) {
    const unique_strv argv = make_argv(words);
    const unique_strv environment = make_environment({});
    if (!g_spawn_async_with_pipes(nullptr, argv.get(), environment.get(), G_SPAWN_DO_NOT_REAP_CHILD,
                                  nullptr, nullptr, &m_pid, nullptr, &m_output_fd, &m_errors_fd,
                                  nullptr)) {
        throw std::runtime_error("vaskctl does not start");
    }
}

tool_in_progress::~tool_in_progress() {
    if (m_pid > 0) {
        end(SIGKILL);
    }
    close(m_output_fd);
    close(m_errors_fd);
}

void tool_in_progress::take(int fd, std::string& all) {
    pollfd pipe = {fd, POLLIN, 0};
    char piece[4096];
    while (poll(&pipe, 1, 0) > 0) {
        const ssize_t length = read(fd, piece, sizeof(piece));
        if (length <= 0) {
            break;
        }
        all.append(piece, static_cast<std::size_t>(length));
    }
}

bool tool_in_progress::wait_for(int fd, std::string& all, const std::string& text) {
    return wait_until([&] {
        take(fd, all);
        return all.find(text) != std::string::npos;
    });
}

void tool_in_progress::take_output() {
    take(m_output_fd, m_output);
}

bool tool_in_progress::wait_for_output(const std::string& text) {
    return wait_for(m_output_fd, m_output, text);
}

bool tool_in_progress::wait_for_errors(const std::string& text) {
    return wait_for(m_errors_fd, m_errors, text);
}

int tool_in_progress::end(int signal) {
    kill(m_pid, signal);
    int status = 0;
    waitpid(m_pid, &status, 0);
    m_pid = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

}  // namespace vask_test
