// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "socket/text_channel.h"

#include <new>

#include "socket/held_text.h"

namespace {

// A channel has room for a pointer to its functions, so what belongs to one channel is kept behind
// them.
struct text_functions : GIOFuncs {
    explicit text_functions(GIOFuncs* channel_functions);

    GIOFuncs* const former;
    held_text held;
    bool has_ended = false;
};

text_functions& functions_of(GIOChannel* channel) {
    return *static_cast<text_functions*>(channel->funcs);
}

GIOStatus fail(GError** error, GConvertError code, const char* reason) {
    g_set_error_literal(error, G_CONVERT_ERROR, code, reason);
    return G_IO_STATUS_ERROR;
}

// Takes what the descriptor has, once.
GIOStatus read_more(GIOChannel* channel, gchar* data, gsize count, GError** error) {
    text_functions& functions = functions_of(channel);
    held_text& held = functions.held;
    if (held.size() >= count) {
        // So much changes the converter's state only, for no character.
        held.give_up();
        return G_IO_STATUS_NORMAL;
    }
    gsize fresh = 0;
    const GIOStatus status =
        functions.former->io_read(channel, data, count - held.size(), &fresh, error);
    if (status == G_IO_STATUS_EOF && held.is_cut()) {
        return fail(error, G_CONVERT_ERROR_PARTIAL_INPUT,
                    "Leftover unconverted data in read buffer");
    }
    functions.has_ended = status == G_IO_STATUS_EOF;
    held.append(data, fresh);
    return status;
}

GIOStatus take_whole_characters(GIOChannel* channel, gchar* data, gsize count, gsize* done,
                                GError** error) {
    held_text& held = functions_of(channel).held;
    *done = 0;
    // GLib reads text behind the bytes that it keeps. Raw bytes it reads anywhere, and hands out by
    // itself what it keeps.
    const gchar* const encoding = g_io_channel_get_encoding(channel);
    const gchar* const kept = encoding != nullptr ? channel->read_buf->str : data;
    held.set_encoding(encoding, channel->read_cd, kept, static_cast<gsize>(data - kept));
    if (held.whole() == 0 && !held.is_bad()) {
        const GIOStatus status = read_more(channel, data, count, error);
        if (status != G_IO_STATUS_NORMAL) {
            return status;
        }
    }
    if (held.is_bad()) {
        return fail(error, G_CONVERT_ERROR_ILLEGAL_SEQUENCE,
                    "Invalid byte sequence in conversion input");
    }
    if (held.whole() == 0) {
        return G_IO_STATUS_AGAIN;
    }
    *done = held.take(data, count);
    return G_IO_STATUS_NORMAL;
}

// Called by GLib, which an exception must not cross: it would also leave the request without a
// watch, pending for ever.
GIOStatus read_whole_characters(GIOChannel* channel, gchar* data, gsize count, gsize* done,
                                GError** error) {
    try {
        return take_whole_characters(channel, data, count, done, error);
    } catch (const std::bad_alloc&) {
        // What was read is lost, and what follows means something else without it.
        functions_of(channel).held.give_up();
        return fail(error, G_CONVERT_ERROR_NO_MEMORY, "No memory for what has come");
    }
}

// GLib's own watch sleeps on what has been read ahead unless that meets all of its conditions, and
// then does not see that a descriptor has been closed.
struct text_watch {
    GSource source;
    GIOChannel* channel;
    GIOCondition condition;
    gpointer descriptor;
};

text_watch* watch_of(GSource* source) {
    return reinterpret_cast<text_watch*>(source);
}

GIOCondition ready_conditions(GSource* source) {
    const text_watch* const watch = watch_of(source);
    int ready = g_source_query_unix_fd(source, watch->descriptor);
    if (has_read_ahead(watch->channel)) {
        ready |= G_IO_IN;
    }
    return static_cast<GIOCondition>(ready & watch->condition);
}

gboolean prepare_watch(GSource* source, gint* timeout) {
    *timeout = -1;
    const text_watch* const watch = watch_of(source);
    return (watch->condition & G_IO_IN) && has_read_ahead(watch->channel);
}

gboolean check_watch(GSource* source) {
    return ready_conditions(source) != 0;
}

gboolean dispatch_watch(GSource* source, GSourceFunc callback, gpointer data) {
    const auto function = reinterpret_cast<GIOFunc>(reinterpret_cast<void (*)()>(callback));
    return function(watch_of(source)->channel, ready_conditions(source), data);
}

void finalize_watch(GSource* source) {
    g_io_channel_unref(watch_of(source)->channel);
}

GSource* create_watch(GIOChannel* channel, GIOCondition condition) {
    static GSourceFuncs functions = {prepare_watch,  check_watch, dispatch_watch,
                                     finalize_watch, nullptr,     nullptr};
    GSource* const source = g_source_new(&functions, sizeof(text_watch));
    text_watch* const watch = watch_of(source);
    watch->channel = g_io_channel_ref(channel);
    watch->condition = condition;
    watch->descriptor = g_source_add_unix_fd(source, g_io_channel_unix_get_fd(channel), condition);
    return source;
}

void free_channel(GIOChannel* channel) {
    const text_functions* const functions = &functions_of(channel);
    channel->funcs = functions->former;
    delete functions;
    channel->funcs->io_free(channel);
}

text_functions::text_functions(GIOFuncs* channel_functions)
    : GIOFuncs(*channel_functions), former(channel_functions) {
    io_read = read_whole_characters;
    io_create_watch = create_watch;
    io_free = free_channel;
}

bool keeps_characters_whole(const GIOChannel* channel) {
    return channel->funcs->io_read == read_whole_characters;
}

}  // namespace

void keep_characters_whole(GIOChannel* channel) {
    if (!keeps_characters_whole(channel)) {
        channel->funcs = new text_functions(channel->funcs);
    }
}

bool has_ended_whole(GIOChannel* channel) {
    return keeps_characters_whole(channel) && functions_of(channel).has_ended;
}

bool has_read_ahead(GIOChannel* channel) {
    if (g_io_channel_get_buffer_condition(channel) & G_IO_IN) {
        return true;
    }
    if (!keeps_characters_whole(channel)) {
        return false;
    }
    // A part of a character waits for the rest, unless the channel has been made raw meanwhile.
    const held_text& held = functions_of(channel).held;
    const bool is_raw = g_io_channel_get_encoding(channel) == nullptr;
    return held.is_bad() || (is_raw ? held.held_back() : held.whole()) > 0;
}
