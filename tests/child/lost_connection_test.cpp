// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// The bus library hands out a connection that was lost and is not dispatched any more.

#include <dbus/dbus-glib-lowlevel.h>
#include <gtest/gtest.h>

#include "bus/session_bus.h"
#include "support/interpose.h"

using namespace vask_test;

namespace {

DBusGConnection* handed_out = nullptr;

class lost_connection : public testing::Test {
protected:
    lost_connection() { handed_out = m_connection; }

    ~lost_connection() override {
        handed_out = nullptr;
        lose();
        dbus_g_connection_unref(m_connection);
    }

    void lose() { dbus_connection_close(dbus_g_connection_get_connection(m_connection)); }

private:
    DBusGConnection* const m_connection =
        dbus_g_bus_get_private(DBUS_BUS_SESSION, nullptr, nullptr);
};

}  // namespace

extern "C" DBusGConnection* dbus_g_bus_get(DBusBusType type, GError** error) {
    static const auto next =
        next_function<DBusGConnection*(DBusBusType, GError**)>("dbus_g_bus_get");
    if (!handed_out) {
        return next(type, error);
    }
    return dbus_g_connection_ref(handed_out);
}

TEST_F(lost_connection, Is_opened_while_it_is_not_lost) {
    EXPECT_EQ(open_session_bus(nullptr).get(), handed_out);
}

TEST_F(lost_connection, Counts_as_no_connection) {
    lose();
    GError* error = nullptr;

    EXPECT_EQ(open_session_bus(&error), nullptr);

    ASSERT_NE(error, nullptr);
    EXPECT_TRUE(g_error_matches(error, DBUS_GERROR, DBUS_GERROR_DISCONNECTED));
    EXPECT_STREQ(error->message, "The connection to the session bus is lost");
    g_error_free(error);
}
