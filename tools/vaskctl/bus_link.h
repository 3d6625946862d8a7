// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

#ifndef VASKCTL_BUS_LINK_H
#define VASKCTL_BUS_LINK_H

#include <gio/gio.h>

#include <functional>
#include <memory>
#include <string>

namespace vaskctl {

struct variant_unref {
    void operator()(GVariant* variant) const { g_variant_unref(variant); }
};
using unique_variant = std::unique_ptr<GVariant, variant_unref>;

// An instant up to which something is waited for.
class deadline {
public:
    explicit deadline(gint64 msec) : m_end(g_get_monotonic_time() + msec * 1000) {}

    int left_msec() const {
        const gint64 left = (m_end - g_get_monotonic_time() + 999) / 1000;
        return static_cast<int>(CLAMP(left, 0, G_MAXINT));
    }
    bool is_over() const { return left_msec() == 0; }

private:
    const gint64 m_end;
};

// What became of a call. One of the two is null.
struct call_result {
    GVariant* reply;
    const GError* error;
    double msec;  // from the call to the answer
};

// The tool's connection to the session bus. Calls are made at the same time, and all of them are
// waited for until one deadline.
class bus_link {
public:
    // Throws a complaint when there is no session bus, or it does not answer in time. Starts none.
    explicit bus_link(const deadline& until);
    ~bus_link();

    bus_link(const bus_link&) = delete;
    bus_link& operator=(const bus_link&) = delete;

    using handler = std::function<void(const call_result&)>;

    // Begins a call; the handler runs in wait(), unless the deadline comes before the answer. A
    // floating tuple of arguments is taken over, null is none.
    void call(const std::string& name, const char* path, const char* interface, const char* method,
              GVariant* arguments, const handler& handle, int timeout_msec = -1);

    // Begins a call of the bus itself.
    void call_bus(const char* method, GVariant* arguments, const handler& handle);

    // Sends a call that wants no reply; returns when the kernel has it. Throws a complaint when the
    // bus does not take it.
    void send(const std::string& name, const char* path, const char* interface, const char* method,
              GVariant* arguments);

    // Waits until everything that was begun is answered, or the deadline. What is unanswered then
    // is given up without its handler. What a handler has thrown is thrown here.
    void wait(const deadline& until);

    GDBusConnection* connection() const { return m_connection; }

private:
    struct state;
    struct pending;
    static void finish(GObject* source, GAsyncResult* result, gpointer data);

    std::shared_ptr<state> m_state;
    GDBusConnection* m_connection = nullptr;
};

// The text of a reply that is one text.
std::string text_in(GVariant* reply);

}  // namespace vaskctl

#endif
