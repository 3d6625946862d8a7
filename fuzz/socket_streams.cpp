// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include <glib.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "target.h"
#include "vask_socket.h"

using vask_fuzz::input;
using vask_fuzz::require;
using vask_fuzz::require_equal;

namespace {

constexpr const char* encodings[] = {
    nullptr,    "UTF-8",       "utf-8",  "UTF-16",      "UTF-16LE",   "UTF-16BE",
    "UTF-32",   "UTF-7",       "EUC-JP", "SHIFT_JIS",   "GB18030",    "ISO-8859-1",
    "US-ASCII", "ISO-2022-JP", "CP1258", "ISO-2022-KR", "BIG5-HKSCS", "TCVN"};

/** A stream, and how its reader asks for it. */
struct stream {
    const char* encoding;
    std::size_t request;
    std::size_t least;
    std::vector<std::string> pieces;
};

/** What has arrived, and how the last request has ended. */
struct arrival {
    std::string text;
    int status = -1;
};

class reader : public vask_socket {
public:
    reader(int fd, const stream& stream)
        : vask_socket(VASK_SOCK_TCP, 0, stream.encoding), m_stream(stream) {
        peer_sock = fd;
        ask();
    }

    bool is_over() const { return !m_read_context.reading; }

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
            ask();
        }
    }

    const stream& m_stream;
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
        run_main_loop();
    }
    close(ends[0]);
    run_main_loop();
    require(reader.is_over(), "the end of the stream ends the request");
    require(!g_main_context_pending(nullptr), "nothing keeps the main loop busy");
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
}

// The encoding, the size of the requests and their least size, and the pieces, each behind its
// length.
void run_target(input& input) {
    stream stream;
    stream.encoding = encodings[input.below(std::size(encodings))];
    stream.request = 8 + input.byte();
    stream.least = 1 + input.byte() % 8;
    while (input.has_more() && stream.pieces.size() < 64) {
        const std::size_t size = input.byte();
        stream.pieces.push_back(input.take(size));
    }
    const arrival split = receive(stream);
    const arrival whole = receive(in_one_piece(stream));
    require_equal(split.text, whole.text, "it does not matter how a stream is split");
    require(split.status == whole.status, "a split stream ends as a whole one does");
}
