// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <numeric>

#include "target.h"
#include "vask_object.h"
#include "vask_utils.h"

using vask_fuzz::input;
using vask_fuzz::require;
using vask_fuzz::require_equal;

namespace {

std::string joined(const std::vector<std::string>& pieces) {
    return std::accumulate(pieces.begin(), pieces.end(), std::string());
}

void take_apart(input& input) {
    const char single = static_cast<char>(input.byte());
    const std::string set = input.text();
    const std::string text = input.text();
    const std::string stripped = vask_object::strip(text.c_str(), single, set.c_str());
    require(stripped.find_first_of(set) == std::string::npos, "nothing of the set stays");

    const auto pieces = vask_object::split(text.c_str(), single, set.c_str());
    require_equal(joined(pieces), stripped, "the pieces are all but the separators");
    require(std::count(pieces.begin(), pieces.end(), "") == 0, "no piece is empty");

    const auto two = vask_object::split_first(text.c_str(), single, set.c_str());
    require(two.size() == 1 || two.size() == 2, "there are one or two pieces");
    require_equal(two.size() == 1 ? two[0] : two[0] + single + two[1],
                  vask_object::strip(text.c_str(), '\0', set.c_str()), "only the set is dropped");
}

void test_numbers(input& input) {
    const std::string text = input.text();
    const bool has_digits_only = text.find_first_not_of("0123456789") == std::string::npos;
    require(vask_object::is_number(text.c_str()) == has_digits_only, "a number has digits only");
    if (vask_object::valid_ip_addr(text.c_str())) {
        require(text.find_first_not_of("0123456789.\r\n\t") == std::string::npos,
                "an address is four numbers");
    }
    const auto n = input.number<std::uint32_t>();
    const std::uint64_t power = vask_object::calc_ge_pow2(n);
    require(power == 0 ? n > 1u << 31 : (power & (power - 1)) == 0 && power >= n,
            "the power of two is not less");
    require(power < 2 || power / 2 < n, "the power of two is the smallest");
    std::uint16_t red, green, blue;
    vask_utils::get_rgb_uint16(n, red, green, blue);
    require(
        red == (n >> 16 & 0xff) * 257 && green == (n >> 8 & 0xff) * 257 && blue == (n & 0xff) * 257,
        "the channels are those of the pixel");
}

void build_paths(input& input) {
    const std::string first = input.text();
    const std::string second = input.text();
    const std::string path = vask_object::build_path(first.c_str(), second.c_str(), nullptr);
    const std::string dir = vask_object::get_dir_name(path.c_str());
    require(path.compare(0, dir.size(), dir) == 0, "the directory is the path's beginning");
    require_equal(vask_object::make_exec_path(first.c_str()), "/usr/bin/" + first,
                  "programs are in /usr/bin");
}

/** Up to 200 characters of a path that leads nowhere else, whatever the text. */
std::string path_below(const std::string& root, std::string text) {
    text.resize(std::min<std::size_t>(text.size(), 200));
    for (std::size_t dots; (dots = text.find("..")) != std::string::npos;) {
        text.replace(dots, 2, ".");
    }
    return root + "/" + text;
}

bool is_directory(const std::string& path) {
    struct stat info;
    return stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

void make_and_delete_trees(input& input) {
    char root[] = "/tmp/vask_fuzz_XXXXXX";
    require(mkdtemp(root) != nullptr, "there is room in /tmp");
    for (int i = 0; i < 8 && input.has_more(); ++i) {
        const std::size_t step = input.below(4);
        const std::string path = path_below(root, input.text());
        if (step == 0) {
            const bool made = vask_object::make_dir_if_necessary(path.c_str(), true);
            require(!made || is_directory(path), "what was made is a directory");
        } else if (step == 1) {
            const bool deleted = vask_object::delete_path(path.c_str());
            require(!deleted || access(path.c_str(), F_OK) != 0, "what was deleted is gone");
        } else if (step == 2) {
            const bool emptied = vask_object::delete_dir(path.c_str());
            // A link to it may have been in it.
            std::error_code gone;
            require(!emptied || std::filesystem::is_empty(path, gone) || gone,
                    "what was emptied is empty");
        } else {
            std::error_code any;
            std::filesystem::create_symlink(path_below(root, input.text()), path, any);
        }
    }
    // A step may have deleted the root itself.
    require(vask_object::make_dir_if_necessary(root, true) && vask_object::delete_path(root) &&
                access(root, F_OK) != 0,
            "a whole tree is deleted");
}

}  // namespace

void set_up_target() {
    vask_fuzz::output_of_library::discard();
}

void run_target(input& input) {
    while (input.has_more()) {
        switch (input.below(5)) {
            case 0:
            case 1:
                take_apart(input);
                break;
            case 2:
                test_numbers(input);
                break;
            case 3:
                build_paths(input);
                break;
            default:
                make_and_delete_trees(input);
                break;
        }
    }
}
