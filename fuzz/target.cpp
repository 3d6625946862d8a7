// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "target.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "sealed/private_world.h"
#include "vask_object.h"
#include "vask_test/world.h"

namespace vask_fuzz {

namespace {

int memory_of_output = -1;

// Inputs replace and remove what lies in /dev/shm under the library's names.
void refuse_machine() {
    const char* const runtime = std::getenv("XDG_RUNTIME_DIR");
    const std::size_t length = std::strlen(vask_test::private_directory);
    const bool is_sealed =
        runtime != nullptr && std::strncmp(runtime, vask_test::private_directory, length) == 0;
    if (!is_sealed && !vask_test::is_in_open_world()) {
        std::fputs("It changes shared memory: run it by scripts/fuzz or vask-sealed.\n", stderr);
        std::_Exit(2);
    }
}

void print_into(int fd) {
    std::fflush(stdout);
    dup2(fd, STDOUT_FILENO);
}

void set_up() {
    refuse_machine();
    memory_of_output = memfd_create("output", MFD_CLOEXEC);
    print_into(memory_of_output);
    vask_object::print_msg_level = VASK_P_DBG;
    set_up_target();
}

}  // namespace

std::string input::take(std::size_t size) {
    size = std::min(size, m_left);
    const std::string taken(m_next, size);
    m_next += size;
    m_left -= size;
    return taken;
}

std::string input::text() {
    const std::string taken = take(strnlen(m_next, m_left));
    take(1);
    return taken;
}

void require(bool kept, const char* promise) {
    if (!kept) {
        std::fprintf(stderr, "A promise is broken: %s\n", promise);
        std::abort();
    }
}

void require_equal(const std::string& found, const std::string& expected, const char* promise) {
    if (found != expected) {
        std::fprintf(stderr, "Expected: '%s'\nFound:    '%s'\n", expected.c_str(), found.c_str());
        require(false, promise);
    }
}

void output_of_library::discard() {
    if (std::getenv("VASK_TEST_SHOW_MESSAGES") != nullptr) {
        print_into(STDERR_FILENO);
        return;
    }
    const int nobody = open("/dev/null", O_WRONLY | O_CLOEXEC);
    print_into(nobody);
    close(nobody);
}

std::string output_of_library::take() {
    std::fflush(stdout);
    std::string text(static_cast<std::size_t>(lseek(memory_of_output, 0, SEEK_CUR)), '\0');
    const ssize_t length = pread(memory_of_output, &text[0], text.size(), 0);
    require(length == static_cast<ssize_t>(text.size()), "the output can be read");
    lseek(memory_of_output, 0, SEEK_SET);
    return text;
}

}  // namespace vask_fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const bool is_set_up = (vask_fuzz::set_up(), true);
    vask_fuzz::input input(data, size);
    if (is_set_up) {
        run_target(input);
    }
    return 0;
}
