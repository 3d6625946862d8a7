// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_LIFE_MARK_H
#define VASK_LIFE_MARK_H

#include "vask_exec.h"

class life_mark;

// A member that a class needs for life_mark. Its end counts as the object's.
class life_marks {
public:
    life_marks() = default;
    ~life_marks();
    life_marks(const life_marks&) = delete;
    life_marks& operator=(const life_marks&) = delete;

private:
    friend class life_mark;

    life_mark* m_innermost = nullptr;  // null when there is none
};

// Tells a function of an object whether what it has called has deleted the object. A local
// variable: marks of one object end in the reverse order of their beginning.
class life_mark {
public:
    explicit life_mark(life_marks& object) : life_mark(object.m_innermost) {}
    explicit life_mark(vask_exec& object) : life_mark(object.m_life_marks) {}
    ~life_mark() {
        if (m_innermost != nullptr) {
            *m_innermost = m_outer;
        }
    }
    life_mark(const life_mark&) = delete;
    life_mark& operator=(const life_mark&) = delete;

    bool is_over() const { return m_innermost == nullptr; }

private:
    friend class life_marks;
    friend class vask_exec;

    // Not inlined: gcc would warn that the address of a local variable is kept, because it does not
    // see that the destructor takes it back.
    __attribute__((noinline)) explicit life_mark(life_mark*& innermost)
        : m_innermost(&innermost), m_outer(innermost) {
        innermost = this;
    }

    // The object ends.
    static void end_all(life_mark* innermost) {
        for (life_mark* mark = innermost; mark != nullptr; mark = mark->m_outer) {
            mark->m_innermost = nullptr;
        }
    }

    life_mark** m_innermost;  // the object's first link of the chain; null once the object is gone
    life_mark* m_outer;       // the mark that was there before, or null
};

inline life_marks::~life_marks() {
    life_mark::end_all(m_innermost);
}

#endif
