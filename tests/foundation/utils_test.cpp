// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <gtest/gtest.h>

#include "vask_utils.h"

namespace {

struct float_channels {
    explicit float_channels(std::uint32_t pixel) { vask_utils::get_rgb_float(pixel, r, g, b); }
    float r = -1;
    float g = -1;
    float b = -1;
};

struct wide_channels {
    explicit wide_channels(std::uint32_t pixel) { vask_utils::get_rgb_uint16(pixel, r, g, b); }
    std::uint16_t r = 1;
    std::uint16_t g = 1;
    std::uint16_t b = 1;
};

}  // namespace

TEST(get_rgb_float, Gives_channels_from_0_to_1) {
    const float_channels orange(0x00FF8000);
    EXPECT_EQ(orange.r, 1.0f);
    EXPECT_EQ(orange.g, 128 / 255.0f);
    EXPECT_EQ(orange.b, 0.0f);
}

TEST(get_rgb_float, Takes_each_channel_from_its_own_byte) {
    const float_channels pixel(0x00010203);
    EXPECT_EQ(pixel.r, 1 / 255.0f);
    EXPECT_EQ(pixel.g, 2 / 255.0f);
    EXPECT_EQ(pixel.b, 3 / 255.0f);
}

TEST(get_rgb_float, Ignores_the_highest_byte) {
    const float_channels pixel(0xFF000000);
    EXPECT_EQ(pixel.r, 0.0f);
    EXPECT_EQ(pixel.g, 0.0f);
    EXPECT_EQ(pixel.b, 0.0f);
}

TEST(get_rgb_uint16, Widens_each_channel) {
    const wide_channels orange(0x00FF8000);
    EXPECT_EQ(orange.r, 65535);
    EXPECT_EQ(orange.g, 32896);
    EXPECT_EQ(orange.b, 0);
}

TEST(get_rgb_uint16, Multiplies_every_value_by_257) {
    for (std::uint32_t value = 0; value <= 255; ++value) {
        const wide_channels pixel(value << 16 | (255 - value) << 8 | value);
        ASSERT_EQ(pixel.r, 257 * value);
        ASSERT_EQ(pixel.g, 257 * (255 - value));
        ASSERT_EQ(pixel.b, 257 * value);
    }
}

TEST(get_rgb_uint16, Ignores_the_highest_byte) {
    const wide_channels pixel(0xFF000000);
    EXPECT_EQ(pixel.r, 0);
    EXPECT_EQ(pixel.g, 0);
    EXPECT_EQ(pixel.b, 0);
}
