// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_ACTION_TABLE_H
#define VASK_TEST_ACTION_TABLE_H

#include <map>
#include <string>

#include "actor.h"

namespace vask_test {

/** What a scripted child can do. */
struct action_table {
    typedef void (*function)(actor& self, const std::string& rest);

    /** Does nothing for a verb that is not in the table. */
    static void perform(actor& self, const action& next);
    static bool has(const std::string& verb) { return functions().count(verb) != 0; }

private:
    static const std::map<std::string, function>& functions();

    static void reply(actor& self, const std::string& rest);
    static void echo(actor& self, const std::string&);
    static void fail(actor& self, const std::string&);
    static void emit(actor& self, const std::string& rest);
    static void flood(actor& self, const std::string& rest);
    static void wait(actor&, const std::string& rest);
    static void hang(actor&, const std::string&);
    static void stop(actor&, const std::string&);
    static void crash(actor&, const std::string& rest);
    static void exit(actor&, const std::string& rest);
    static void quit(actor& self, const std::string& rest);
    static void ignore_sigterm(actor&, const std::string&);
    static void join_bus(actor& self, const std::string&);
    static void stay_off_bus(actor& self, const std::string&);
    static void release_name(actor&, const std::string&);
    static void take_name(actor&, const std::string&);
    static void lose_bus(actor&, const std::string&);
    static void log(actor& self, const std::string& rest);
    static void print(actor&, const std::string& rest);
};

}  // namespace vask_test

#endif
