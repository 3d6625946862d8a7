// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#include "socket/read_watch.h"

#include <utility>

#include "foundation/life_mark.h"
#include "socket/socket_channel.h"
#include "socket/text_channel.h"
#include "vask_socket.h"

struct read_watch::source {
    GSource base;
    read_watch* owner;
    GIOChannel* channel;
    GPollFD descriptor;
};

namespace {

GIOCondition ready_conditions(const GPollFD& descriptor) {
    return static_cast<GIOCondition>(descriptor.revents & descriptor.events);
}

}  // namespace

bool read_watch::suits(GIOChannel* channel) {
    return is_socket_channel(channel) && !g_io_channel_get_buffered(channel) &&
           !has_read_ahead(channel);
}

guint read_watch::add(GIOChannel* channel, GIOCondition condition) {
    if (!is_spare_for(channel, condition)) {
        static GSourceFuncs functions = {prepare, check, dispatch, finalize, nullptr, nullptr};
        remove();
        m_source = reinterpret_cast<source*>(g_source_new(&functions, sizeof(source)));
        m_source->owner = this;
        m_source->channel = g_io_channel_ref(channel);
        m_source->descriptor = {g_io_channel_unix_get_fd(channel), static_cast<gushort>(condition),
                                0};
        g_source_add_poll(&m_source->base, &m_source->descriptor);
        g_source_set_can_recurse(&m_source->base, TRUE);
        g_source_attach(&m_source->base, nullptr);
    }
    m_is_spare = false;
    return g_source_get_id(&m_source->base);
}

bool read_watch::is_spare_for(const GIOChannel* channel, GIOCondition condition) const {
    return m_is_spare && !g_source_is_destroyed(&m_source->base) && m_source->channel == channel &&
           m_source->descriptor.events == condition;
}

bool read_watch::release(guint id) {
    if (m_source == nullptr || g_source_get_id(&m_source->base) != id) {
        return false;
    }
    m_is_spare = m_source == m_dispatched;
    if (!m_is_spare) {
        remove();
    }
    return true;
}

void read_watch::remove() {
    m_is_spare = false;
    if (m_source != nullptr) {
        source* const removed = std::exchange(m_source, nullptr);
        g_source_destroy(&removed->base);
        g_source_unref(&removed->base);
    }
}

gboolean read_watch::prepare(GSource* base, gint* timeout) {
    *timeout = -1;
    read_watch& owner = *reinterpret_cast<source*>(base)->owner;
    if (owner.m_is_spare) {
        owner.remove();
    }
    return FALSE;
}

gboolean read_watch::check(GSource* base) {
    return ready_conditions(reinterpret_cast<source*>(base)->descriptor) != 0;
}

gboolean read_watch::dispatch(GSource* base, GSourceFunc, gpointer) {
    source* const ready = reinterpret_cast<source*>(base);
    read_watch& owner = *ready->owner;
    const life_mark life(owner.m_socket);
    source* const outer = std::exchange(owner.m_dispatched, ready);
    vask_socket::_watch_read(ready->channel, ready_conditions(ready->descriptor), &owner.m_socket);
    if (life.is_over()) {
        return G_SOURCE_REMOVE;
    }
    owner.m_dispatched = outer;
    if (owner.m_is_spare && owner.m_source == ready) {
        owner.remove();
    }
    return owner.m_source == ready;
}

void read_watch::finalize(GSource* base) {
    g_io_channel_unref(reinterpret_cast<source*>(base)->channel);
}
