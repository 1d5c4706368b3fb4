#include "view_events.h"

#include <gio/gio.h>

#include <cstdio>
#include <memory>

namespace {

struct JsonUnref {
        void operator()(json_t *json) const { json_decref(json); }
};

struct EventListener {
        ViewModel *model = nullptr;
        GCancellable *cancellable = nullptr;
        GDBusConnection *connection = nullptr;
        guint subscription = 0;
};

EventListener listener;

void view_events_recorded(GDBusConnection *, const gchar *, const gchar *, const gchar *, const gchar *,
                          GVariant *parameters, gpointer)
{
        const gchar *json = nullptr;
        ViewEvent event;
        if (!g_variant_is_of_type(parameters, G_VARIANT_TYPE("(s)")))
                return;
        g_variant_get(parameters, "(&s)", &json);
        if (view_events_parse(json, &event))
                view_take_event(listener.model, event);
}

void view_events_connected(GObject *, GAsyncResult *result, gpointer)
{
        GError *error = nullptr;
        GDBusConnection *connection = g_dbus_connection_new_for_address_finish(result, &error);
        if (!connection) {
                if (!g_error_matches(error, G_IO_ERROR, G_IO_ERROR_CANCELLED))
                        fprintf(stderr, "sim-view: no events: %s\n", error->message);
                g_error_free(error);
                return;
        }
        listener.connection = connection;
        listener.subscription = g_dbus_connection_signal_subscribe(
                connection, nullptr, "com.zelk.EventProducerd1.Sim", "Recorded", "/com/zelk/EventProducerd1", nullptr,
                G_DBUS_SIGNAL_FLAGS_NONE, view_events_recorded, nullptr, nullptr);
}

} // namespace

bool view_events_parse(const char *json, ViewEvent *event)
{
        std::unique_ptr<json_t, JsonUnref> call(json_loads(json, 0, nullptr));
        const char *method = json_string_value(json_object_get(call.get(), "method"));
        if (!method)
                return false;
        const char *state = json_string_value(json_object_get(call.get(), "state"));
        event->at_us = g_get_monotonic_time();
        event->method = method;
        event->state = state ? state : "";
        event->failed = json_is_true(json_object_get(call.get(), "failed"));
        json_t *sent = json_object_get(call.get(), "time");
        if (json_is_integer(sent))
                event->sent_us = event->at_us - (g_get_real_time() - json_integer_value(sent));
        return true;
}

void view_events_start(ViewModel *model)
{
        listener.model = model;
        const char *address = g_getenv("DBUS_SYSTEM_BUS_ADDRESS");
        if (!address) {
                fprintf(stderr, "sim-view: DBUS_SYSTEM_BUS_ADDRESS is not set: no events\n");
                return;
        }
        listener.cancellable = g_cancellable_new();
        g_dbus_connection_new_for_address(address,
                                          static_cast<GDBusConnectionFlags>(
                                                  G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                                  G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
                                          nullptr, listener.cancellable, view_events_connected, nullptr);
}

void view_events_stop(void)
{
        if (listener.cancellable)
                g_cancellable_cancel(listener.cancellable);
        g_clear_object(&listener.cancellable);
        if (listener.subscription)
                g_dbus_connection_signal_unsubscribe(listener.connection, listener.subscription);
        listener.subscription = 0;
        g_clear_object(&listener.connection);
}
