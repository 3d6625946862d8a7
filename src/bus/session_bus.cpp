#include "bus/session_bus.h"

#include <dbus/dbus-glib-lowlevel.h>
#include <dbus/dbus.h>
#include <string.h>

namespace {

// The bus drops the connection of whoever sends a longer message. The header is less than this
// allowance.
constexpr size_t header_allowance = 65536;
constexpr size_t longest_text = static_cast<size_t>(DBUS_MAXIMUM_MESSAGE_LENGTH) - header_allowance;

}  // namespace

DBusGConnection* open_session_bus(GError** error) {
    DBusGConnection* connection = dbus_g_bus_get(DBUS_BUS_SESSION, error);
    if (connection == nullptr) {
        return nullptr;
    }
    dbus_connection_set_exit_on_disconnect(dbus_g_connection_get_connection(connection), FALSE);
    // The bus library may hand out a lost connection until a main loop has dispatched the loss.
    if (!is_bus_connected(connection)) {
        dbus_g_connection_unref(connection);
        g_set_error_literal(error, DBUS_GERROR, DBUS_GERROR_DISCONNECTED, session_bus_is_lost);
        return nullptr;
    }
    return connection;
}

bool is_bus_connected(DBusGConnection* connection) {
    return connection != nullptr &&
           dbus_connection_get_is_connected(dbus_g_connection_get_connection(connection));
}

DBusGProxy* new_bus_daemon_proxy(DBusGConnection* connection) {
    return dbus_g_proxy_new_for_name(connection, DBUS_SERVICE_DBUS, DBUS_PATH_DBUS,
                                     DBUS_INTERFACE_DBUS);
}

const char* find_text_problem(const char* text) {
    if (text == nullptr) {
        return nullptr;
    }
    if (strlen(text) > longest_text) {
        return "The text is too long for the bus";
    }
    if (!dbus_validate_utf8(text, nullptr)) {
        return "The text is not valid UTF-8";
    }
    return nullptr;
}
