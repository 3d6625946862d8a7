// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "target.h"
#include "vask_app.h"

using vask_fuzz::input;
using vask_fuzz::require;
using vask_fuzz::require_equal;

namespace {

class open_app : public vask_app {
public:
    open_app(int argc, char** argv) : vask_app("app", argc, argv) {}

    using vask_app::m_arg_index;
    using vask_app::set_arg_error_fatal;
};

void read_argument(open_app& app, const std::vector<std::string>& args, int off) {
    const long long index = static_cast<long long>(app.m_arg_index) + off;
    const bool exists = index >= 0 && index < static_cast<long long>(args.size());
    const char* const text = app.arg_iter_get_char_p(off);
    require((text != nullptr) == exists, "an argument is there or not");
    const int number = app.arg_iter_get_int(off);
    const unsigned int hex = app.arg_iter_get_uint_hex(off);
    if (exists) {
        require_equal(text, args[static_cast<std::size_t>(index)], "an argument is what was given");
        require(number == static_cast<int>(strtol(text, nullptr, 10)),
                "a number is read as C does");
        unsigned int expected = 0;
        const bool is_hex = sscanf(text, "%x", &expected) == 1;
        require(hex == (is_hex ? expected : 0), "a hexadecimal number is read as C does");
    } else {
        require(number == 0 && hex == 0, "what is not there counts as 0");
    }
}

void check_index(open_app& app, const std::vector<std::string>& args, int index) {
    const int meant = index < 0 ? app.m_arg_index : index;
    require(app.arg_iter_chk_idx(index, true) == (meant < static_cast<int>(args.size())),
            "an index is held against the number of arguments");
}

void check_rest(open_app& app, int wanted) {
    require(app.arg_iter_chk_num_rest(wanted, "too few arguments\n") ==
                (app.arg_iter_num_rest() >= wanted),
            "there are enough arguments or not");
}

void move_and_read(open_app& app, const std::vector<std::string>& args, input& input) {
    switch (input.below(7)) {
        case 0:
            app.arg_iter_begin();
            break;
        case 1:
            app.arg_iter_inc(input.number<std::int32_t>());
            break;
        case 2:
            app.arg_iter_inc(1);
            break;
        case 3:
            if (app.m_arg_index >= 0 && !app.arg_iter_end()) {
                require_equal(app.arg_iter_elem(), args[static_cast<std::size_t>(app.m_arg_index)],
                              "the iterator is at its argument");
            } else {
                require_equal(app.arg_iter_elem(), "", "an iterator without argument is at none");
                app.arg_iter_elem() = "a program may write to it";
            }
            break;
        case 4:
            app.set_arg_error_fatal(input.flag());
            check_rest(app, input.number<std::int32_t>());
            break;
        case 5:
            check_index(app, args, input.number<std::int32_t>());
            break;
        default:
            read_argument(app, args, input.number<std::int32_t>());
            break;
    }
    const bool is_end = app.m_arg_index >= static_cast<int>(args.size());
    require(app.arg_iter_end() == is_end, "the end is behind the last argument");
}

}  // namespace

void set_up_target() {
    vask_fuzz::output_of_library::discard();
}

// How many arguments, the texts, and then steps.
void run_target(input& input) {
    std::vector<std::string> words(input.below(8));
    std::vector<char*> argv;
    for (std::string& word : words) {
        word = input.text();
        argv.push_back(&word[0]);
    }
    argv.push_back(nullptr);
    open_app app(static_cast<int>(words.size()), argv.data());
    words.erase(words.begin(), words.begin() + (words.empty() ? 0 : 1));
    require(app.get_arg_num() == static_cast<int>(words.size()), "no argument is lost");
    while (input.has_more()) {
        move_and_read(app, words, input);
    }
}
