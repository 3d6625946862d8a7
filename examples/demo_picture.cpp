// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "demo_picture.h"

#include <vask_object.h>
#include <vask_shared_info.h>

#include <algorithm>

namespace demo_picture {

namespace {

constexpr int thickness = 8;
constexpr int digit_width = 32;
constexpr int upright = 20;

// In the order of the bits below: top, upper right, lower right, bottom, lower left, upper left,
// middle.
constexpr std::array<unsigned int, 10> segments_of_digits = {0x3f, 0x06, 0x5b, 0x4f, 0x66,
                                                             0x6d, 0x7d, 0x07, 0x7f, 0x6f};

constexpr std::array<demo_colour, 6> process_colours = {
    {{200, 48, 48}, {40, 136, 64}, {48, 88, 200}, {208, 128, 16}, {128, 56, 168}, {16, 136, 152}}};

unsigned long lowest_bit(unsigned long mask) {
    return mask & ~(mask - 1);
}

unsigned long scale_to_mask(unsigned char value, unsigned long mask) {
    const unsigned long maximum = mask / lowest_bit(mask);
    return (value * maximum / 255) * lowest_bit(mask);
}

unsigned char scale_from_mask(unsigned long pixel, unsigned long mask) {
    const unsigned long maximum = mask / lowest_bit(mask);
    return static_cast<unsigned char>((pixel & mask) / lowest_bit(mask) * 255 / maximum);
}

}  // namespace

const std::array<demo_box, 7> segments = {{
    {thickness, 0, digit_width - 2 * thickness, thickness},
    {digit_width - thickness, thickness, thickness, upright},
    {digit_width - thickness, 2 * thickness + upright, thickness, upright},
    {thickness, 2 * (thickness + upright), digit_width - 2 * thickness, thickness},
    {0, 2 * thickness + upright, thickness, upright},
    {0, thickness, thickness, upright},
    {thickness, thickness + upright, digit_width - 2 * thickness, thickness},
}};

demo_colour colour_of_process(int pid) {
    return process_colours[static_cast<unsigned int>(pid) % process_colours.size()];
}

bool is_dark_cell(int column, int row) {
    return (column + row) % 2 == 0;
}

unsigned int lit_segments(int digit) {
    return segments_of_digits[static_cast<unsigned int>(digit)];
}

int digit_with_segments(unsigned int lit) {
    const auto found = std::find(segments_of_digits.begin(), segments_of_digits.end(), lit);
    return found == segments_of_digits.end() ? -1
                                             : static_cast<int>(found - segments_of_digits.begin());
}

int turns_of_monitor() {
    const int rotation = vask_object::get_monitor_rotation();
    return rotation >= VASK_MONITOR_ROTATION_0 && rotation <= VASK_MONITOR_ROTATION_3 ? rotation
                                                                                      : 0;
}

demo_box turned(const demo_box& box, int turns) {
    static_assert(width == height, "a quarter turn needs a square");
    demo_box result = box;
    for (int i = 0; i < turns; ++i) {
        result = {width - result.y - result.height, result.x, result.height, result.width};
    }
    return result;
}

unsigned long pixel_of(demo_colour colour, const Visual& visual) {
    return scale_to_mask(colour.red, visual.red_mask) |
           scale_to_mask(colour.green, visual.green_mask) |
           scale_to_mask(colour.blue, visual.blue_mask);
}

demo_colour colour_of_pixel(unsigned long pixel, const Visual& visual) {
    return {scale_from_mask(pixel, visual.red_mask), scale_from_mask(pixel, visual.green_mask),
            scale_from_mask(pixel, visual.blue_mask)};
}

}  // namespace demo_picture
