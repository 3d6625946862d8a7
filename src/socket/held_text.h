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

    // Null for raw bytes. What is held is looked at anew when it changes.
    void set_encoding(const char* encoding);

    void append(const char* data, gsize count);

    // How many bytes from the first one on decode to at least one character and leave no part of
    // one; 0 when more is needed.
    gsize whole() const { return m_whole; }

    // Gives what there is to the decoder, which keeps what is not whole for itself; it is
    // still counted here. Returns the number of bytes that it has not been given before.
    gsize take(char* data);

    gsize size() const { return m_bytes.size(); }

    // What comes next is no text, whatever follows.
    bool is_bad() const { return m_is_bad && m_whole == 0; }
    void give_up() { m_is_bad = true; }

    // The stream is over, and with it a character that is not whole or waits for the next one.
    bool is_cut();

private:
    void close_converter();
    void examine();
    void examine_utf8();
    void convert();

    std::string m_bytes;
    std::string m_encoding;
    bool m_is_raw = true;
    GIConv m_converter = nullptr;
    // The converter has seen that many of the bytes. The bytes behind m_whole have only changed its
    // state.
    gsize m_seen = 0;
    gsize m_whole = 0;
    // So many of the first bytes wait where they are decoded.
    gsize m_given = 0;
    bool m_is_bad = false;
    bool m_is_cut = false;
};

#endif
