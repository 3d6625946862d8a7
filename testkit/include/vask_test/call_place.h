// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_TEST_CALL_PLACE_H
#define VASK_TEST_CALL_PLACE_H

/**
 * @file
 * Where something was called.
 * @since 2.0
 */

#include <array>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace vask_test {

/** The functions that were running at some moment. Cheap to take; names are looked up on demand. */
class call_place {
public:
    /** Names of functions that were looked up. */
    typedef std::map<const void*, std::string> name_map;

    /** @return the functions that are running now */
    static call_place here();

    /**
     * Names, innermost first, from the first function on that belongs neither to the fake browser
     * nor to the wrappers of its functions, up to the test framework or to the call of the page
     * that led there. A function without an exported name shows as another one.
     *
     * @return the names with their parameters
     */
    std::vector<std::string> functions() const;

    /** @return the first of them without its parameters. */
    std::string function() const;

    /** @return all of them in one line. */
    std::string text() const;

    /** Looks the names up now, because the functions are about to be unloaded.
     *  @param names  those that are known already, to which it adds its own */
    void keep_names(const std::shared_ptr<name_map>& names);

private:
    static constexpr int most_frames = 24;

    std::array<void*, most_frames> m_frames{};
    int m_depth = 0;
    std::shared_ptr<const name_map> m_names;  // null while they can be looked up
};

}  // namespace vask_test

#endif
