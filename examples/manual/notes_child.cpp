// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <stdlib.h>
#include <vask_child.h>

#include "notes.h"

class notes_child : public vask_child {
public:
    notes_child(int argc, char** argv) : vask_child("notes_child", argc, argv) {
        add_cmd_handler(NOTES_ADD, static_cast<cmd_handler>(&notes_child::add));
        add_cmd_handler(NOTES_COUNT, static_cast<cmd_handler>(&notes_child::count));
        add_cmd_handler(NOTES_BREAK, static_cast<cmd_handler>(&notes_child::break_down));
        store_pid_to_shm(0);  // so that tools find it without a scan of all processes
    }

    void set_window(int x, int y, int w, int h, unsigned int id) override {
        vask_child::set_window(x, y, w, h, id);
        m_notes.push_back("draw into window " + std::to_string(id));
    }

private:
    bool add(const char* note, const char**) {
        m_notes.push_back(note);
        emit_signal(NOTES_ADDED, note);
        return true;
    }

    bool count(const char*, const char** reply) {
        m_reply = std::to_string(m_notes.size());
        *reply = m_reply.c_str();  // has to stay valid after the return
        return true;
    }

    bool break_down(const char*, const char**) { abort(); }

    std::vector<std::string> m_notes;
    std::string m_reply;
};

int main(int argc, char** argv) {
    notes_child child(argc, argv);
    return child.run();
}
