// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <vask_child.h>

class hello_child : public vask_child {
public:
    hello_child(int argc, char** argv) : vask_child("hello_child", argc, argv) {
        add_cmd_handler(1, static_cast<cmd_handler>(&hello_child::greet));
    }

private:
    bool greet(const char* name, const char** reply) {
        m_reply = std::string("Hello, ") + name + "!";
        *reply = m_reply.c_str();
        return true;
    }

    std::string m_reply;
};

int main(int argc, char** argv) {
    return hello_child(argc, argv).run();
}
