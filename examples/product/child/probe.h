// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef PROBE_H
#define PROBE_H

#include <glib.h>

#include <functional>
#include <string>

/** A program that measures something, and prints it. It runs beside the main loop. */
class probe {
public:
    /** Takes the first line of the output, which is empty if there is none. */
    typedef std::function<void(const std::string& value)> result_taker;

    /** @return whether it was started; if so, @p done is called once, unless this object ends */
    bool start(const std::string& program, const std::string& what, result_taker done);

    probe() = default;
    /** A program that still runs is killed. */
    ~probe();
    probe(const probe&) = delete;
    probe& operator=(const probe&) = delete;

    bool is_running() const { return m_output >= 0; }

private:
    static gboolean on_output(int fd, GIOCondition condition, gpointer self);
    static void on_end(GPid pid, int status, gpointer nothing);

    bool read_output();
    void stop_reading();

    GPid m_pid = 0;
    int m_output = -1;
    guint m_watch = 0;
    std::string m_text;
    result_taker m_done;
};

#endif
