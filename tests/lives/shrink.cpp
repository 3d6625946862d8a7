// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "shrink.h"

#include <algorithm>

namespace vask_test {

namespace {

using test = std::function<bool(const program&)>;

// Everything but the piece.
program without(const program& steps, std::size_t begin, std::size_t count) {
    program rest(steps.begin(), steps.begin() + static_cast<std::ptrdiff_t>(begin));
    const std::size_t end = std::min(begin + count, steps.size());
    rest.insert(rest.end(), steps.begin() + static_cast<std::ptrdiff_t>(end), steps.end());
    return rest;
}

bool take_pieces_away(program& steps, std::size_t count, const test& fails) {
    bool has_shrunk = false;
    for (std::size_t begin = 0; begin < steps.size();) {
        program rest = without(steps, begin, count);
        if (fails(rest)) {
            steps = std::move(rest);
            has_shrunk = true;
        } else {
            begin += count;
        }
    }
    return has_shrunk;
}

void make_numbers_small(program& steps, const test& fails) {
    for (std::size_t i = 0; i < steps.size(); ++i) {
        for (int operation::*number : {&operation::slot, &operation::value}) {
            program simpler = steps;
            simpler[i].*number = 0;
            if (steps[i].*number != 0 && fails(simpler)) {
                steps = std::move(simpler);
            }
        }
    }
}

}  // namespace

program shrunk(program steps, const test& fails) {
    for (std::size_t count = std::max<std::size_t>(1, steps.size() / 2);; count /= 2) {
        while (take_pieces_away(steps, count, fails)) {
        }
        if (count == 1) {
            break;
        }
    }
    make_numbers_small(steps, fails);
    return steps;
}

}  // namespace vask_test
