// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_SHARED_OBJECTS_H
#define VASK_TEST_SHARED_OBJECTS_H

#include <gmock/gmock.h>
#include <semaphore.h>
#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "vask_shared_info.h"
#include "vask_test/log_catcher.h"

/** What lies in /dev/shm for one shared-memory context, seen and made without the library. */
class shared_object {
public:
    explicit shared_object(const std::string& name);

    std::string path() const;
    std::string sem_path() const;

    bool exists() const;
    bool sem_exists() const;
    bool is_mapped() const;
    mode_t mode() const;
    mode_t sem_mode() const;
    std::vector<unsigned char> bytes() const;

    /** 1 is free, 0 is held; missing when there is none. */
    int sem_value() const;
    static constexpr int missing = -1;

    void create(const std::vector<unsigned char>& content) const;
    void create_sem(unsigned int value) const;
    void write(std::size_t offset, const void* content, std::size_t size) const;
    void remove() const;
    void remove_sem() const;

    std::int32_t int_at(std::size_t offset) const;
    void set_int_at(std::size_t offset, std::int32_t value) const;

private:
    const std::string m_name;
};

/** A view of the record that is forgotten after the test, and shows its context. */
class own_shared_info : public vask_shared_info {
public:
    ~own_shared_info() { unmap_shared_info(false); }
    using vask_shared_info::m_shared_info_ctx;
};

/** Begins and ends without a record, and without other contexts. */
class shared_info_test : public testing::Test {
protected:
    shared_info_test();
    ~shared_info_test() override;

    static testing::Matcher<const vask_test::log_line&> error(const std::string& text);
    static testing::Matcher<const vask_test::log_line&> bug(const std::string& text);
    static testing::Matcher<const vask_test::log_line&> sem_error(const std::string& text);

    const shared_object record{"vask_shared_info"};
    vask_test::log_catcher log;
};

#endif
