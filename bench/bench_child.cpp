// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <string>

#include "child_commands.h"
#include "vask_child.h"

namespace {

class bench_child : public vask_child {
public:
    bench_child(int argc, char** argv) : vask_child("bench_child", argc, argv) {
        add_cmd_handler(BENCH_ECHO, static_cast<cmd_handler>(&bench_child::echo));
        add_cmd_handler(BENCH_COUNT, static_cast<cmd_handler>(&bench_child::count));
        add_cmd_handler(BENCH_TOTAL, static_cast<cmd_handler>(&bench_child::total));
    }

private:
    bool echo(const char* argument, const char** reply) {
        m_reply = argument;
        *reply = m_reply.c_str();
        return true;
    }

    bool count(const char*, const char**) {
        ++m_count;
        return true;
    }

    bool total(const char*, const char** reply) {
        m_reply = std::to_string(m_count);
        m_count = 0;
        *reply = m_reply.c_str();
        return true;
    }

    std::string m_reply;
    long m_count = 0;
};

}  // namespace

int main(int argc, char** argv) {
    bench_child child(argc, argv);
    return child.run();
}
