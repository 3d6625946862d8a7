// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_FUZZ_TARGET_H
#define VASK_FUZZ_TARGET_H

#include <cstddef>
#include <cstdint>
#include <string>

/**
 * What every fuzz target shares. A target reads one input with an `input`, hands what it finds
 * there to the library, and ends the process by require() when the library breaks a promise.
 */
namespace vask_fuzz {

/** The bytes of one input, taken from the front. When they are used up, everything is 0 or empty.
 */
class input {
public:
    input(const std::uint8_t* data, std::size_t size)
        : m_next(reinterpret_cast<const char*>(data)), m_left(size) {}

    bool has_more() const { return m_left != 0; }

    std::uint8_t byte() { return static_cast<std::uint8_t>(number<std::uint8_t>()); }
    bool flag() { return (byte() & 1) != 0; }

    /** From 0 to one less than the limit, which is at most 256. */
    std::size_t below(std::size_t limit) { return byte() % limit; }

    /** As the machine stores it. */
    template <typename Number>
    Number number() {
        Number value = 0;
        const std::string bytes = take(sizeof(value));
        bytes.copy(reinterpret_cast<char*>(&value), sizeof(value));
        return value;
    }

    /** That many bytes, or fewer at the end. */
    std::string take(std::size_t size);

    /** Up to a zero, which it drops, or to the end. */
    std::string text();

    std::string rest() { return take(m_left); }

private:
    const char* m_next;
    std::size_t m_left;
};

/** Ends the process, as a finding, if a promise is broken. */
void require(bool kept, const char* promise);

/** The same, and tells what was there instead. */
void require_equal(const std::string& found, const std::string& expected, const char* promise);

/** What the library prints to standard output, which is not the terminal here. */
namespace output_of_library {
/** Standard output goes to nobody from now on; the messages are made all the same. */
void discard();

/** What was printed to standard output since the last call. Not after discard(). */
std::string take();
}  // namespace output_of_library

}  // namespace vask_fuzz

/** Defined by each target; called once, in a world of its own, before the first input. */
void set_up_target();

/** Defined by each target. */
void run_target(vask_fuzz::input& input);

#endif
