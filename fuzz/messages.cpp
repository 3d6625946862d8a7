// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <stdarg.h>
#include <syslog.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "target.h"
#include "vask_object.h"

using vask_fuzz::input;
using vask_fuzz::require;
using vask_fuzz::require_equal;
namespace output = vask_fuzz::output_of_library;

namespace {

std::string sent_to_syslog;
int syslog_priority = -1;
std::string syslog_identity;

constexpr const char* level_names[] = {"EMERG", "BUG",    "FATAL", "ERR",
                                       "WARN",  "NOTICE", "INFO",  "DBG"};

class named_object : public vask_object {
public:
    explicit named_object(const char* name) { obj_name = name; }
};

void forget_output() {
    output::take();
    sent_to_syslog.clear();
}

void set_variable(const char* name, input& input) {
    if (input.flag()) {
        setenv(name, input.text().c_str(), 1);
    } else {
        unsetenv(name);
    }
}

void read_environment(input& input) {
    set_variable("VASK_MSG_LV", input);
    set_variable("VASK_MSG_FLAGS", input);
    set_variable("VASK_SYSLOG", input);
    const unsigned int before = vask_object::print_flags;
    forget_output();
    vask_object::set_print_msg_level();
    require(
        vask_object::print_msg_level >= VASK_P_EMERG && vask_object::print_msg_level <= VASK_P_DBG,
        "there are eight levels");
    const char* const flags = getenv("VASK_MSG_FLAGS");
    const unsigned int set = flags == nullptr ? 0
                                              : (strchr(flags, 'T') != nullptr ? 1u : 0u) |
                                                    (strchr(flags, 'A') != nullptr ? 2u : 0u);
    require(vask_object::print_flags == (before | set), "a flag for each letter");
    const std::string complaint = output::take();
    require(complaint.empty() || vask_object::print_msg_level == VASK_P_INFO,
            "a wrong level is reported and leaves the usual one");
}

// What the header has beside name, process and level differs every time.
bool is_header_plain() {
    return vask_object::print_flags == 0;
}

void expect_message(const char* name, int level, const std::string& text) {
    const std::string printed = output::take();
    const char* const syslog_value = getenv("VASK_SYSLOG");
    if (level > vask_object::print_msg_level) {
        require_equal(printed + sent_to_syslog, "", "the level is obeyed");
    } else if (syslog_value != nullptr && strcmp(syslog_value, "1") == 0) {
        require_equal(sent_to_syslog, text, "syslog gets the message");
        require(syslog_priority == level, "the level is the priority");
        require_equal(syslog_identity, name, "syslog gets the object's name");
        require_equal(printed, "", "syslog gets it alone");
    } else if (is_header_plain()) {
        require_equal(printed,
                      std::string("[") + name + ":" + std::to_string(vask_object::my_pid) + "] " +
                          level_names[level] + ": " + text,
                      "a message is its header and its text");
    } else {
        require(printed.size() >= text.size() &&
                    printed.compare(printed.size() - text.size(), text.size(), text) == 0,
                "the text comes behind the header");
    }
    sent_to_syslog.clear();
}

std::string long_text(input& input) {
    std::string text = input.text();
    const std::size_t times = input.number<std::uint16_t>() % 5000;
    return text + std::string(times, text.empty() ? 'x' : text.back());
}

void print_message(input& input) {
    const std::string name = input.text();
    const std::string text = long_text(input);
    const int level = static_cast<int>(input.below(8));
    const auto as_level = static_cast<vask_print_level>(level);
    const int number = input.number<int>();
    const named_object object(name.c_str());
    forget_output();
    if (input.flag()) {
        object.vask_p(as_level, "%s\n", text.c_str());
    } else {
        vask_object::vask_p(name.c_str(), as_level, "%s\n", text.c_str());
    }
    expect_message(name.c_str(), level, text + "\n");
    object.vask_p(as_level, "%d %x%%", number, static_cast<unsigned int>(number));
    char expected[32];
    snprintf(expected, sizeof expected, "%d %x%%", number, static_cast<unsigned int>(number));
    expect_message(name.c_str(), level, expected);
}

// The C library refuses characters that the locale does not have.
void print_wide_text(input& input) {
    const wchar_t wide[] = {L'a', static_cast<wchar_t>(input.number<std::uint32_t>()), 0};
    vask_object::vask_p("wide", VASK_P_EMERG, "text %ls", wide);
    require(vask_object::vask_sprintf("%ls", wide).size() <= 8, "two characters are short");
    forget_output();
}

void format_text(input& input) {
    const std::string text = long_text(input);
    const std::string formatted = vask_object::vask_sprintf("%s", text.c_str());
    require_equal(formatted, text.size() == 4096 ? "" : text.substr(0, 4095),
                  "texts are cut at 4095 characters, and 4096 are refused");
    require_equal(vask_object::vask_snprintf("%s", text.c_str()), formatted, "both do the same");
    forget_output();
}

void look_level_up(input& input) {
    const int level = static_cast<int>(input.number<std::uint16_t>());
    const char* const name =
        vask_object::get_vask_p_level_string(static_cast<vask_print_level>(level));
    require(level <= VASK_P_DBG ? strcmp(name, level_names[level]) == 0 : name == nullptr,
            "eight levels have names");
    vask_object::vask_p_header("header", static_cast<vask_print_level>(level), nullptr);
    forget_output();
}

}  // namespace

extern "C" {

// The identity belongs to the caller, who may change it when the log is closed.
void openlog(const char* identity, int options, int facility) {
    require(options == (LOG_PID | LOG_CONS) && facility == LOG_USER, "syslog is opened for users");
    syslog_identity = identity;
}
void closelog() {}
void vsyslog(int priority, const char* format, va_list args) {
    syslog_priority = priority;
    char text[16384];
    vsnprintf(text, sizeof text, format, args);
    sent_to_syslog = text;
}

}  // extern "C"

void set_up_target() {}

void run_target(input& input) {
    vask_object::print_flags = 0;
    read_environment(input);
    while (input.has_more()) {
        switch (input.below(4)) {
            case 0:
                print_message(input);
                break;
            case 1:
                print_wide_text(input);
                break;
            case 2:
                format_text(input);
                break;
            default:
                look_level_up(input);
                break;
        }
    }
}
