// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// Compares what the library decodes by itself with what libsoup 2.4 decodes.

#include "foundation/uri_decode.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

G_GNUC_BEGIN_IGNORE_DEPRECATIONS
#include <libsoup/soup.h>
G_GNUC_END_IGNORE_DEPRECATIONS

namespace {

const char* text_of(const unique_g_text& text) {
    return text ? text.get() : "(null)";
}

testing::AssertionResult is_decoded_alike(const std::string& text) {
    const unique_g_text theirs(soup_uri_decode(text.c_str()));
    const unique_g_text ours = decode_uri_without_libsoup(text.c_str());
    if (g_strcmp0(theirs.get(), ours.get()) == 0) {
        return testing::AssertionSuccess();
    }
    return testing::AssertionFailure()
           << testing::PrintToString(text) << " is "
           << testing::PrintToString(std::string(text_of(theirs))) << " to libsoup, and "
           << testing::PrintToString(std::string(text_of(ours))) << " to the library";
}

std::string random_text(std::mt19937& random) {
    // As many escapes, and beginnings of them, as other characters.
    const std::string signs = "%%%%0123456789abcdefABCDEFgG/";
    std::string text(random() % 120, '\0');
    for (char& character : text) {
        character = random() % 8 != 0 ? signs[random() % signs.size()]
                                      : static_cast<char>(1 + random() % 255);
    }
    return text;
}

}  // namespace

TEST(uri_decode, Is_that_of_libsoup_for_every_short_text) {
    const std::string alphabet = "%04aFg\xC3";
    std::vector<std::string> texts = {""};
    for (size_t next = 0; next < texts.size(); ++next) {
        ASSERT_TRUE(is_decoded_alike(texts[next]));
        if (texts[next].size() == 6) {
            continue;
        }
        for (const char character : alphabet) {
            texts.push_back(texts[next] + character);
        }
    }
}

TEST(uri_decode, Is_that_of_libsoup_for_every_pair_of_bytes_behind_a_percent_sign) {
    for (int first = 1; first < 256; ++first) {
        for (int second = 1; second < 256; ++second) {
            const char bytes[] = {'a', '%', static_cast<char>(first), static_cast<char>(second),
                                  'b', '\0'};
            ASSERT_TRUE(is_decoded_alike(bytes));
        }
    }
}

TEST(uri_decode, Is_that_of_libsoup_for_random_texts) {
    const unsigned seed = 20240613;
    std::mt19937 random(seed);
    for (int i = 0; i < 50000; ++i) {
        ASSERT_TRUE(is_decoded_alike(random_text(random))) << "text " << i << " of seed " << seed;
    }
}

TEST(uri_decode, Is_that_of_libsoup_for_a_long_text) {
    std::string text;
    for (int i = 0; i < 100000; ++i) {
        text += "%C3%A4%%4";
    }
    EXPECT_TRUE(is_decoded_alike(text));
}
