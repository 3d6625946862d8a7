// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_TOOL_RUN_H
#define VASK_TEST_TOOL_RUN_H

#include <json-glib/json-glib.h>
#include <sys/types.h>

#include <initializer_list>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

namespace vask_test {

/** What a run of vaskctl has left behind. */
struct tool_result {
    int status = -1;
    std::string output;
    std::string errors;
};

bool operator==(const tool_result& a, const tool_result& b);
void PrintTo(const tool_result& result, std::ostream* out);

/** How vaskctl is run. */
struct tool_setting {
    uid_t user = 0;                        // 0 for the test's own
    std::vector<std::string> environment;  // "NAME=value", or "NAME" for none of that name
    std::string input;
    bool hides_processes = false;  // the user sees only his own in /proc; needs root
    bool has_full_output = false;  // nothing that is printed arrives
};

/** The whole of a run, waited for. */
tool_result run_tool(const std::vector<std::string>& words, const tool_setting& setting = {});

/** The same, with what differs from run to run made equal: "12.3 ms" is "N ms". */
tool_result run_tool_evened(const std::vector<std::string>& words,
                            const tool_setting& setting = {});

/** The words for a run that waits patiently for slow machines. */
std::vector<std::string> patient(std::vector<std::string> words);

/** What all runs so far, and other processes that were waited for, have taken of the processor. */
double processor_seconds_of_tools();

/** One JSON value of the output. */
class parsed_json {
public:
    explicit parsed_json(const std::string& text);

    /** What lies at a path like "objects/0/verdict", as a text; "null" for null, "(none)" for
     *  nothing. */
    std::string at(const std::string& path) const;

    /** How many members or elements there are. */
    std::size_t size_of(const std::string& path) const;

private:
    JsonNode* find(const std::string& path) const;

    struct unref {
        void operator()(JsonParser* parser) const { g_object_unref(parser); }
    };
    const std::unique_ptr<JsonParser, unref> m_parser;
};

/** A run that goes on until it is ended. */
class tool_in_progress {
public:
    explicit tool_in_progress(const std::vector<std::string>& words);
    ~tool_in_progress();
    tool_in_progress(const tool_in_progress&) = delete;
    tool_in_progress& operator=(const tool_in_progress&) = delete;

    pid_t pid() const { return m_pid; }

    /** False when the deadline comes first. */
    bool wait_for_output(const std::string& text);
    bool wait_for_errors(const std::string& text);

    /** Takes what is there. */
    void take_output();
    const std::string& output() const { return m_output; }

    /** Sends a signal and waits for the end. */
    int end(int signal);

private:
    static void take(int fd, std::string& all);
    static bool wait_for(int fd, std::string& all, const std::string& text);

    pid_t m_pid = -1;
    int m_output_fd = -1;
    int m_errors_fd = -1;
    std::string m_output;
    std::string m_errors;
};

}  // namespace vask_test

#endif
