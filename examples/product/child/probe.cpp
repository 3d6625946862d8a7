// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "probe.h"

#include <glib-unix.h>
#include <signal.h>
#include <unistd.h>
#include <vask_object.h>

#include <cerrno>

bool probe::start(const std::string& program, const std::string& what, result_taker done) {
    std::string texts[] = {program, what};
    char* argv[] = {&texts[0][0], &texts[1][0], nullptr};
    GError* error = nullptr;
    if (!g_spawn_async_with_pipes(nullptr, argv, nullptr, G_SPAWN_DO_NOT_REAP_CHILD, nullptr,
                                  nullptr, &m_pid, nullptr, &m_output, nullptr, &error)) {
        vask_object::vask_p("probe", VASK_P_ERR, "%s\n", error->message);
        g_error_free(error);
        return false;
    }
    // It is reaped whenever it ends, also after this object.
    g_child_watch_add(m_pid, on_end, nullptr);
    g_unix_set_fd_nonblocking(m_output, TRUE, nullptr);
    m_watch = g_unix_fd_add(m_output, GIOCondition(G_IO_IN | G_IO_HUP), on_output, this);
    m_text.clear();
    m_done = std::move(done);
    return true;
}

probe::~probe() {
    if (is_running()) {
        kill(m_pid, SIGKILL);
        g_source_remove(m_watch);
        stop_reading();
    }
}

void probe::on_end(GPid pid, int, gpointer) {
    g_spawn_close_pid(pid);
}

gboolean probe::on_output(int, GIOCondition, gpointer self) {
    probe& it = *static_cast<probe*>(self);
    if (it.read_output()) {
        return G_SOURCE_CONTINUE;
    }
    it.stop_reading();
    const std::string value = it.m_text.substr(0, it.m_text.find('\n'));
    // It may start the next one.
    const result_taker done = std::move(it.m_done);
    done(value);
    return G_SOURCE_REMOVE;
}

/** False at the end. */
bool probe::read_output() {
    char buffer[256];
    const ssize_t length = read(m_output, buffer, sizeof buffer);
    if (length > 0) {
        m_text.append(buffer, static_cast<std::size_t>(length));
    }
    return length > 0 || (length < 0 && (errno == EAGAIN || errno == EINTR));
}

void probe::stop_reading() {
    close(m_output);
    m_output = -1;
}
