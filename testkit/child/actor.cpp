// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "actor.h"

#include <dbus/dbus.h>
#include <fcntl.h>
#include <glib-unix.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>

#include "action_table.h"
#include "script_file.h"

namespace vask_test {

/** The child on the bus, once it has joined. */
class actor::stage : public vask_child {
public:
    explicit stage(actor& owner)
        : vask_child(owner.m_name.c_str(), owner.m_argc, owner.m_argv), m_owner(owner) {}

    bool command(int id, const char* argument, const char** reply) override {
        return m_owner.handle_command(id, argument, reply);
    }

    void set_window(int x, int y, int w, int h, unsigned int id) override {
        m_owner.note(vask_sprintf("window %d %d %d %d %u", x, y, w, h, id));
        m_owner.perform(m_owner.m_script.take("window"));
    }

    bool refuse(int id, const char* argument, const char** reply) {
        return vask_child::command(id, argument, reply);
    }

private:
    actor& m_owner;
};

actor::actor(const std::string& program, bool has_files, script wanted, int argc, char** argv)
    : m_program(program),
      m_name(program.substr(program.rfind('/') + 1)),
      m_has_files(has_files),
      m_script(std::move(wanted)),
      m_argc(argc),
      m_argv(argv) {}

actor::~actor() = default;

int actor::run() {
    std::string event = "started";
    for (int i = 1; m_has_files && i < m_argc; ++i) {
        event += std::string(" ") + m_argv[i];
    }
    note(event);
    m_script.skip("start", count_earlier_starts());
    watch_sigterm();
    open_orders();
    perform(m_script.take("start"));
    if (!m_child && !m_stays_off_bus) {
        join();
    }
    while (!m_child && !m_has_ended) {
        g_main_context_iteration(nullptr, TRUE);
    }
    if (m_child && !m_has_ended) {
        m_status = m_child->run();
    }
    note("ended " + std::to_string(m_status));
    return m_status;
}

// In one piece, because others write there too.
void actor::note(const std::string& event) {
    const std::string line = std::to_string(getpid()) + " " + escaped(event) + "\n";
    if (!m_has_files) {
        printf("%s\n", escaped(event).c_str());
        fflush(stdout);
        return;
    }
    const int fd =
        open(journal_of(m_program).c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    if (write(fd, line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
        perror(journal_of(m_program).c_str());
    }
    close(fd);
}

// The journal says who is first of those that start at the same time. An earlier process may have
// had this one's number.
std::size_t actor::count_earlier_starts() const {
    std::size_t count = 0;
    std::size_t earlier = 0;
    const std::string own_number = std::to_string(getpid());
    std::ifstream journal(m_has_files ? journal_of(m_program) : "");
    for (std::string line; std::getline(journal, line);) {
        const std::size_t blank = line.find(' ');
        if (line.compare(blank + 1, strlen("started"), "started") == 0) {
            earlier = line.compare(0, blank, own_number) == 0 ? count : earlier;
            ++count;
        }
    }
    return earlier;
}

void actor::watch_sigterm() {
    if (!m_script.has("sigterm")) {
        return;
    }
    const auto on_sigterm = [](gpointer self) -> gboolean {
        actor& it = *static_cast<actor*>(self);
        it.note("sigterm");
        it.perform(it.m_script.take("sigterm"));
        return G_SOURCE_CONTINUE;
    };
    g_unix_signal_add(SIGTERM, on_sigterm, this);
}

void actor::open_orders() {
    if (!m_has_files) {
        return;
    }
    const std::string path = orders_of(m_program, getpid());
    int fd = -1;
    // An earlier process may have had this one's number and left its pipe. For writing as well:
    // without a writer it would always be readable.
    if ((mkfifo(path.c_str(), 0600) != 0 && errno != EEXIST) ||
        (fd = open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC)) < 0) {
        perror(path.c_str());
        return;
    }
    const auto on_input = [](gint pipe, GIOCondition, gpointer self) -> gboolean {
        static_cast<actor*>(self)->read_orders(pipe);
        return G_SOURCE_CONTINUE;
    };
    g_unix_fd_add(fd, G_IO_IN, on_input, this);
}

void actor::read_orders(int fd) {
    char buffer[4096];
    const ssize_t length = read(fd, buffer, sizeof buffer);
    if (length <= 0) {
        return;
    }
    m_order.append(buffer, static_cast<std::size_t>(length));
    std::size_t end;
    while ((end = m_order.find('\n')) != std::string::npos) {
        const std::string line = m_order.substr(0, end);
        m_order.erase(0, end + 1);
        perform(parse_action(line));
    }
}

void actor::perform(const action_list& actions) {
    for (const action& next : actions) {
        perform(next);
    }
}

void actor::perform(const action& next) {
    try {
        action_table::perform(*this, next);
    } catch (const std::exception& error) {
        fprintf(stderr, "%s: cannot do '%s %s': %s\n", m_program.c_str(), next.verb.c_str(),
                next.rest.c_str(), error.what());
    }
}

bool actor::handle_command(int id, const char* argument, const char** reply) {
    const std::string blank = *argument ? " " : "";
    note("command " + std::to_string(id) + blank + argument);
    std::string situation = "command " + std::to_string(id);
    if (!m_script.has(situation)) {
        situation = "command";
    }
    if (!m_script.has(situation)) {
        return m_child->refuse(id, argument, reply);
    }
    *reply = nullptr;
    call current = {argument, reply, true};
    m_call = &current;
    perform(m_script.take(situation));
    m_call = nullptr;
    return current.succeeds;
}

void actor::join() {
    m_child = std::make_unique<stage>(*this);
    note("joined");
}

vask_child& actor::child() const {
    if (!m_child) {
        throw std::runtime_error("it has not joined the bus");
    }
    return *m_child;
}

void actor::quit(int status) {
    m_has_ended = true;
    m_status = status;
    if (m_child) {
        m_child->app_quit_request(status);
    }
}

}  // namespace vask_test
