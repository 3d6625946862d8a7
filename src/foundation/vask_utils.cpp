// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "vask_utils.h"

namespace {

struct rgb {
    std::uint8_t red;
    std::uint8_t green;
    std::uint8_t blue;
};

rgb unpack(std::uint32_t pixel) {
    return {static_cast<std::uint8_t>(pixel >> 16), static_cast<std::uint8_t>(pixel >> 8),
            static_cast<std::uint8_t>(pixel)};
}

// 0xFF becomes 0xFFFF: the byte is repeated in both halves.
std::uint16_t widen(std::uint8_t channel) {
    return static_cast<std::uint16_t>(channel * 257);
}

}  // namespace

void vask_utils::get_rgb_float(std::uint32_t pixel, float& r, float& g, float& b) {
    const rgb channels = unpack(pixel);
    r = static_cast<float>(channels.red) / 255.0f;
    g = static_cast<float>(channels.green) / 255.0f;
    b = static_cast<float>(channels.blue) / 255.0f;
}

void vask_utils::get_rgb_uint16(std::uint32_t pixel, std::uint16_t& r, std::uint16_t& g,
                                std::uint16_t& b) {
    const rgb channels = unpack(pixel);
    r = widen(channels.red);
    g = widen(channels.green);
    b = widen(channels.blue);
}
