// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <stdlib.h>
#include <string.h>

#include <bitset>

#include "foundation/log_place.h"
#include "vask_object.h"

namespace {

const char source_unit[] = "vask_object_text";

// A set of characters that is asked once for every character of a text.
class char_set {
public:
    char_set(char single, const char* others) {
        if (single != '\0') {
            add(single);
        }
        for (; *others != '\0'; ++others) {
            add(*others);
        }
    }

    bool contains(char c) const { return m_members[static_cast<unsigned char>(c)]; }

private:
    void add(char c) { m_members.set(static_cast<unsigned char>(c)); }

    std::bitset<256> m_members;
};

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

}  // namespace

std::string vask_object::strip(const char* text, char c, const char* set) {
    const char_set dropped(c, set);
    std::string stripped;
    stripped.reserve(strlen(text));
    for (; *text != '\0'; ++text) {
        if (!dropped.contains(*text)) {
            stripped += *text;
        }
    }
    return stripped;
}

bool vask_object::is_number(const char* text) {
    while (is_digit(*text)) {
        ++text;
    }
    return *text == '\0';
}

std::vector<std::string> vask_object::split(const char* text, char delimiter, const char* set) {
    const char_set separators(delimiter, set);
    std::vector<std::string> pieces;
    while (*text != '\0') {
        const char* end = text;
        while (*end != '\0' && !separators.contains(*end)) {
            ++end;
        }
        if (end != text) {
            pieces.emplace_back(text, end);
        }
        text = *end != '\0' ? end + 1 : end;
    }
    return pieces;
}

std::vector<std::string> vask_object::split_first(const char* text, char delimiter,
                                                  const char* set) {
    std::string cleaned = strip(text, '\0', set);
    const std::string::size_type found = cleaned.find(delimiter);
    if (found == std::string::npos) {
        return {cleaned};
    }
    return {cleaned.substr(0, found), cleaned.substr(found + 1)};
}

bool vask_object::valid_ip_addr(const char* text) {
    const std::vector<std::string> pieces = split(text, '.', "\r\n\t");
    if (pieces.size() != 4) {
        return false;
    }
    for (const std::string& piece : pieces) {
        if (!is_number(piece.c_str()) ||
            static_cast<unsigned int>(strtol(piece.c_str(), nullptr, 10)) > 255) {
            return false;
        }
    }
    return true;
}

unsigned int vask_object::calc_ge_pow2(unsigned int n) {
    constexpr unsigned int highest_power = 1u << 31;
    if (n > highest_power) {
        vask_p("vask", VASK_P_ERR, VASK_AT("Failed to calculate for %u"), n);
        return 0;
    }
    unsigned int power = 1;
    while (power < n) {
        power <<= 1;
    }
    return power;
}
