// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASK_HELD_TEXT_H
#define VASK_HELD_TEXT_H

#include <glib.h>

#include <string>

// Bytes that have come and do not make a character yet. A second converter runs ahead of the one
// that decodes them, so that this one is only given bytes when it can turn some into characters.
class held_text {
public:
    held_text() = default;
    ~held_text();
    held_text(const held_text&) = delete;
    held_text& operator=(const held_text&) = delete;

    // Null for raw bytes. When the encoding changes, what is held is examined again, and so are the
    // bytes that the decoder keeps: also those that it had decoded and nobody has asked for yet.
    // Another decoder of the same encoding begins without the state of the former one.
    void set_encoding(const char* encoding, GIConv decoder, const char* kept, gsize kept_size);

    void append(const char* data, gsize count);

    // How many bytes from the first one on decode to at least one character and leave no part of
    // one; 0 when more is needed.
    gsize whole() const { return m_whole; }

    // Copies what the decoder shall have and was not given yet, as far as there is room; returns
    // how much that is. Of that the decoder keeps what is not whole, which is still counted here.
    gsize take(char* data, gsize room);

    gsize size() const { return m_bytes.size(); }

    // How much the decoder was not given.
    gsize held_back() const { return m_bytes.size() - m_given; }

    // The next bytes are not text, whatever follows them.
    bool is_bad() const { return m_is_bad && m_whole == 0; }
    void give_up() { m_is_bad = true; }

    // At the stream's end: whether it has cut a character, or one that waits for the next one.
    bool is_cut();

private:
    void close_converter();
    void examine();
    void examine_utf8();
    void convert();

    std::string m_bytes;
    std::string m_encoding;  // empty for raw bytes
    bool m_is_raw = true;
    GIConv m_decoder = nullptr;  // only compared
    GIConv m_converter = nullptr;
    // How many of the bytes the converter has seen. Those behind m_whole have only changed its
    // state.
    gsize m_seen = 0;
    gsize m_whole = 0;
    // How many of the first bytes the decoder has been given and keeps.
    gsize m_given = 0;
    bool m_is_bad = false;  // the bytes behind m_whole are not text
    bool m_is_cut = false;  // is_cut() was true; it resets the converter
};

#endif
