// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <glib.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "target.h"
#include "vask_socket.h"

using vask_fuzz::input;
using vask_fuzz::require;
using vask_fuzz::require_equal;

namespace {

struct encoding {
    const char* name;
    bool has_state;  // bytes of the stream may only say how to read what follows
};

constexpr encoding encodings[] = {
    {nullptr, false},     {"UTF-8", false},      {"utf-8", false},   {"UTF-16", true},
    {"UTF-16LE", false},  {"UTF-16BE", false},   {"UTF-32", true},   {"UTF-7", true},
    {"EUC-JP", false},    {"SHIFT_JIS", false},  {"GB18030", false}, {"ISO-8859-1", false},
    {"US-ASCII", false},  {"ISO-2022-JP", true}, {"CP1258", true},   {"ISO-2022-KR", true},
    {"BIG5-HKSCS", true}, {"TCVN", true}};

constexpr std::size_t longest_character = 4;

/** A stream, and how its reader asks for it. */
struct stream {
    encoding first;
    std::size_t request;
    std::size_t least;
    std::size_t complete_in_first = 0;  // requests; none when the encoding does not change
    encoding second;
    std::vector<std::string> pieces;
};

/** What has arrived, and how the last request has ended. */
struct arrival {
    std::string text;
    int status = -1;
};

/** A whole text as UTF-8; nothing where it is none. */
std::optional<std::string> converted(const std::string& bytes, const encoding& encoding) {
    if (encoding.name == nullptr) {
        return bytes;
    }
    gsize length = 0;
    char* const text = g_convert(bytes.data(), static_cast<gssize>(bytes.size()), "UTF-8",
                                 encoding.name, nullptr, &length, nullptr);
    if (text == nullptr) {
        return std::nullopt;
    }
    const std::string result(text, length);
    g_free(text);
    return result;
}

class reader : public vask_socket {
public:
    reader(int fd, const stream& stream)
        : vask_socket(VASK_SOCK_TCP, 0, stream.first.name),
          m_stream(stream),
          m_encoding(stream.first) {
        peer_sock = fd;
        ask();
    }

    bool is_over() const { return !m_read_context.reading; }

    void will_get(const std::string& piece) { m_sent += piece; }

    /** What a stream that ends well must have brought, if one can tell. */
    void look_at_text() const {
        if (m_is_clear && arrived.status == G_IO_STATUS_EOF) {
            const auto rest = converted(m_sent.substr(m_sent_in_first), m_encoding);
            require(rest.has_value(), "what is no text does not end well");
            require_equal(arrived.text, m_text_in_first + *rest, "the text arrives that was sent");
        }
    }

    arrival arrived;

private:
    void ask() {
        const vask_obj_exec_info handler = {static_cast<vask_exec_func>(&reader::take), nullptr,
                                            this};
        require(set_read_request(handler, m_stream.request, m_stream.least, 0),
                "a socket can be asked for bytes");
    }

    void take(void*) {
        require(m_read_context.received <= m_stream.request, "no more comes than was asked for");
        std::string text(m_read_context.received, '\0');
        m_read_context.copy(&text[0], 0);
        arrived.text += text;
        arrived.status = m_read_context.status;
        if (m_read_context.complete) {
            require(text.size() >= m_stream.least, "a complete request has its least size");
            if (++m_complete == m_stream.complete_in_first) {
                change_encoding();
            }
            ask();
        }
    }

    // As the header of a protocol may say. Which bytes the second one gets is clear where the first
    // one has nothing left.
    void change_encoding() {
        m_encoding = m_stream.second;
        m_is_clear = !m_stream.first.has_state && converted(m_sent, m_stream.first) == arrived.text;
        m_sent_in_first = m_sent.size();
        m_text_in_first = arrived.text;
        g_io_channel_set_buffered(peer_ch, TRUE);
        const GIOStatus status = g_io_channel_set_encoding(peer_ch, m_encoding.name, nullptr);
        require(status == G_IO_STATUS_NORMAL || !m_is_clear, "the encoding can be changed");
    }

    const stream& m_stream;
    encoding m_encoding;
    std::string m_sent;
    std::size_t m_complete = 0;
    std::size_t m_sent_in_first = 0;
    std::string m_text_in_first;
    bool m_is_clear = true;
};

void run_main_loop() {
    while (g_main_context_iteration(nullptr, FALSE)) {
    }
}

arrival receive(const stream& stream) {
    int ends[2];
    require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0, "there are sockets");
    reader reader(ends[1], stream);
    for (const std::string& piece : stream.pieces) {
        // A reader that has met bad text has closed nothing, and reads no more.
        require(write(ends[0], piece.data(), piece.size()) == static_cast<ssize_t>(piece.size()),
                "a stream takes what is written");
        reader.will_get(piece);
        run_main_loop();
    }
    close(ends[0]);
    run_main_loop();
    require(reader.is_over(), "the end of the stream ends the request");
    require(!g_main_context_pending(nullptr), "nothing keeps the main loop busy");
    reader.look_at_text();
    return reader.arrived;
}

stream in_one_piece(const stream& split) {
    stream whole = split;
    whole.pieces = {""};
    for (const std::string& piece : split.pieces) {
        whole.pieces[0] += piece;
    }
    return whole;
}

}  // namespace

void set_up_target() {
    vask_fuzz::output_of_library::discard();
    // Of a channel whose encoding cannot be changed yet.
    g_log_set_default_handler([](const gchar*, GLogLevelFlags, const gchar*, gpointer) {}, nullptr);
}

// The encoding, the size of the requests and their least size, with a flag for another encoding
// and the number of requests before it, and the pieces, each behind its length.
void run_target(input& input) {
    stream stream;
    stream.first = encodings[input.below(std::size(encodings))];
    stream.request = 8 + input.byte();
    const std::uint8_t least = input.byte();
    // A request with less room than a character takes may fail at it, or not, depending on the
    // split.
    stream.least = std::min<std::size_t>(1 + least % 8, stream.request - longest_character + 1);
    if ((least & 0x80) != 0) {
        stream.second = encodings[input.below(std::size(encodings))];
        stream.complete_in_first = 1 + input.below(8);
    }
    while (input.has_more() && stream.pieces.size() < 64) {
        const std::size_t size = input.byte();
        stream.pieces.push_back(input.take(size));
    }
    const arrival split = receive(stream);
    const arrival whole = receive(in_one_piece(stream));
    // In one piece, the second encoding begins elsewhere.
    if (stream.complete_in_first == 0) {
        require_equal(split.text, whole.text, "it does not matter how a stream is split");
        require(split.status == whole.status, "a split stream ends as a whole one does");
    }
}
