#ifndef VASK_LIFE_MARK_H
#define VASK_LIFE_MARK_H

#include "vask_exec.h"

// Tells a function of an object whether what it has called has deleted the object. A local
// variable: marks of one object end in the reverse order of their beginning.
class life_mark {
public:
    explicit life_mark(vask_exec& object) : m_object(&object), m_outer(object.m_life_marks) {
        object.m_life_marks = this;
    }
    ~life_mark() {
        if (m_object != nullptr) {
            m_object->m_life_marks = m_outer;
        }
    }
    life_mark(const life_mark&) = delete;
    life_mark& operator=(const life_mark&) = delete;

    bool is_over() const { return m_object == nullptr; }

private:
    friend class vask_exec;

    vask_exec* m_object;
    life_mark* m_outer;
};

#endif
