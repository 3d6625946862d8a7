// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "socket/held_text.h"

#include <errno.h>
#include <string.h>

#include <algorithm>

namespace {

const GIConv no_converter = reinterpret_cast<GIConv>(-1);

// These a channel does not convert but only validates.
bool is_utf8(const std::string& encoding) {
    return encoding == "UTF-8" || encoding == "UTF8";
}

}  // namespace

held_text::~held_text() {
    close_converter();
}

void held_text::close_converter() {
    if (m_converter != nullptr && m_converter != no_converter) {
        g_iconv_close(m_converter);
    }
    m_converter = nullptr;
}

void held_text::set_encoding(const char* encoding, GIConv decoder, const char* kept,
                             gsize kept_size) {
    const bool is_raw = encoding == nullptr;
    const bool is_same = is_raw || (m_encoding == encoding && m_decoder == decoder);
    if (is_raw == m_is_raw && is_same) {
        return;
    }
    close_converter();
    m_decoder = decoder;
    m_is_raw = is_raw;
    m_encoding = is_raw ? "" : encoding;
    m_bytes.replace(0, m_given, kept, kept_size);
    m_given = kept_size;
    if (!is_raw && !is_utf8(m_encoding)) {
        m_converter = g_iconv_open("UTF-8", encoding);
    }
    m_seen = 0;
    m_whole = 0;
    m_is_bad = false;
    m_is_cut = false;
    examine();
}

void held_text::append(const char* data, gsize count) {
    m_bytes.append(data, count);
    examine();
}

gsize held_text::take(char* data, gsize room) {
    // Some converters look at what follows before they decode a byte, such as an escape that begins
    // no sequence. The other one is given the same bytes, or it would still wait.
    // What it was given in another encoding can be more than is whole in this one.
    const gsize end = m_converter != nullptr ? m_bytes.size() : std::max(m_whole, m_given);
    const gsize fresh = std::min(end - m_given, room);
    memcpy(data, m_bytes.data() + m_given, fresh);
    const gsize given = m_given + fresh;
    const gsize done = std::min(m_whole, given);
    m_bytes.erase(0, done);
    m_given = given - done;
    m_seen -= done;
    m_whole -= done;
    return fresh;
}

bool held_text::is_cut() {
    char waiting[64];
    char* end = waiting;
    gsize room = sizeof waiting;
    if (m_converter != nullptr) {
        g_iconv(m_converter, nullptr, nullptr, &end, &room);
    }
    m_is_cut = m_is_cut || end != waiting || m_seen < m_bytes.size();
    return m_is_cut;
}

void held_text::examine() {
    if (m_is_raw) {
        m_whole = m_seen = m_bytes.size();
    } else if (m_converter == nullptr) {
        examine_utf8();
    } else {
        convert();
    }
}

void held_text::examine_utf8() {
    const char* const begin = m_bytes.data();
    const char* rest = begin;
    g_utf8_validate_len(begin, m_bytes.size(), &rest);
    m_whole = m_seen = static_cast<gsize>(rest - begin);
    const gsize left = m_bytes.size() - m_whole;
    // A zero counts as a part of a character there, which nothing ever completes.
    m_is_bad = left > 0 && (*rest == '\0' || g_utf8_get_char_validated(
                                                 rest, static_cast<gssize>(left)) == gunichar(-1));
}

void held_text::convert() {
    char output[1024];
    gsize converted = 0;
    char* next = &m_bytes[0] + m_seen;
    gsize left = m_bytes.size() - m_seen;
    int error = E2BIG;
    while (error == E2BIG) {
        char* end = output;
        gsize room = sizeof output;
        error = g_iconv(m_converter, &next, &left, &end, &room) == gsize(-1) ? errno : 0;
        converted += static_cast<gsize>(end - output);
    }
    m_seen = m_bytes.size() - left;
    if (converted > 0) {
        m_whole = m_seen;
    }
    m_is_bad = error != 0 && error != EINVAL && left > 0;
}
