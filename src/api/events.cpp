#include "events.h"

#include "log.h"

#include <gio/gio.h>

#include <initializer_list>

namespace {

constexpr const char *producer_bus_name = "com.zelk.EventProducerd1";
constexpr const char *producer_object_path = "/com/zelk/EventProducerd1";
constexpr const char *producer_interface = "com.zelk.EventProducerd1";

struct EventsClient {
        GDBusProxy *proxy;
        gint32 declaration_id; // 0 until the producer accepted the declaration
};

EventsClient events; // file-level, so it starts zeroed: only non-zero starts are written

struct StringPair {
        const gchar *key;
        const gchar *value;
};

// An a{ss} with the entries in the order given: the producer keeps that order.
GVariant *events_string_dict(std::initializer_list<StringPair> entries)
{
        GVariantBuilder builder;
        g_variant_builder_init(&builder, G_VARIANT_TYPE("a{ss}"));
        for (const StringPair &entry : entries)
                g_variant_builder_add(&builder, "{ss}", entry.key, entry.value);
        return g_variant_builder_end(&builder);
}

// The keys' fixed values: which application and which of its events this is.
GVariant *events_fixed_values(void)
{
        GVariantBuilder builder;
        g_variant_builder_init(&builder, G_VARIANT_TYPE("a{sv}"));
        g_variant_builder_add(&builder, "{sv}", "topic0", g_variant_new_string("Trelvo"));
        g_variant_builder_add(&builder, "{sv}", "topic1", g_variant_new_string("CameraConnection"));
        return g_variant_builder_end(&builder);
}

GVariant *events_tags(void)
{
        const gchar *const topic1_tags[] = {"isApplicationData"};
        const gchar *const state_tags[] = {"onvif-data", "property-state"};
        GVariantBuilder builder;
        g_variant_builder_init(&builder, G_VARIANT_TYPE("a{sv}"));
        g_variant_builder_add(&builder, "{sv}", "topic1", g_variant_new_strv(topic1_tags, G_N_ELEMENTS(topic1_tags)));
        g_variant_builder_add(&builder, "{sv}", "state", g_variant_new_strv(state_tags, G_N_ELEMENTS(state_tags)));
        return g_variant_builder_end(&builder);
}

// One stateful event type whose "state" key carries the connection state's name.
GVariant *events_declaration(void)
{
        return g_variant_new("(b@a{ss}@a{sv}@a{ss}@a{ss}@a{ss}@a{sv}s)", FALSE,
                             events_string_dict({{"topic0", "VALUE_TYPE_STRING"},
                                                 {"topic1", "VALUE_TYPE_STRING"},
                                                 {"state", "VALUE_TYPE_STRING"}}),
                             events_fixed_values(), events_string_dict({{"state", "State"}}), events_string_dict({}),
                             events_string_dict({{"topic0", "tnszelk"}, {"topic1", ""}}), events_tags(), "state");
}

} // namespace

gboolean declare_state_event(void)
{
        GError *error = nullptr;
        events.declaration_id = 0;
        events.proxy = g_dbus_proxy_new_for_bus_sync(G_BUS_TYPE_SYSTEM, G_DBUS_PROXY_FLAGS_NONE, nullptr,
                                                     producer_bus_name, producer_object_path, producer_interface,
                                                     nullptr, &error);
        if (!events.proxy) {
                log_warning("%sFailed to create proxy to data collection service: %s", error->message);
                g_clear_error(&error);
                return FALSE;
        }
        GVariant *reply = g_dbus_proxy_call_sync(events.proxy, "DeclareEvent", events_declaration(),
                                                 G_DBUS_CALL_FLAGS_NONE, -1, nullptr, &error);
        if (!reply) {
                log_warning("%sFailed to call \"DeclareEvent\" on event producer service: %s", error->message);
                g_clear_error(&error);
                return TRUE;
        }
        // The proxy knows no interface, so nothing else checked the reply's type.
        if (g_variant_is_of_type(reply, G_VARIANT_TYPE("(i)")))
                g_variant_get(reply, "(i)", &events.declaration_id);
        else
                log_warning("%sFailed to call \"DeclareEvent\" on event producer service: %s",
                            "reply is not of type (i)");
        g_variant_unref(reply);
        return TRUE;
}

void send_state_event(const gchar *state)
{
        if (!events.proxy)
                return;
        GVariantBuilder values;
        g_variant_builder_init(&values, G_VARIANT_TYPE("a{sv}"));
        g_variant_builder_add(&values, "{sv}", "state", g_variant_new_string(state));
        GError *error = nullptr;
        GVariant *reply = g_dbus_proxy_call_sync(
                events.proxy, "SendEvent",
                g_variant_new("(i@a{sv}x)", events.declaration_id, g_variant_builder_end(&values), g_get_real_time()),
                G_DBUS_CALL_FLAGS_NONE, -1, nullptr, &error);
        if (!reply) {
                log_warning("%sFailed to call \"SendEvent\" for ChannelANY on event producer service: %s",
                            error->message);
                g_clear_error(&error);
                return;
        }
        g_variant_unref(reply);
}

void undeclare_state_event(void)
{
        if (!events.proxy)
                return;
        GError *error = nullptr;
        GVariant *reply = g_dbus_proxy_call_sync(events.proxy, "UndeclareEvent",
                                                 g_variant_new("(i)", events.declaration_id), G_DBUS_CALL_FLAGS_NONE,
                                                 -1, nullptr, &error);
        if (!reply) {
                // A producer that already went away (or goes while asked) has nothing to withdraw.
                // Only the codes are compared: whatever the error's domain.
                if (error->code != G_DBUS_ERROR_SERVICE_UNKNOWN && error->code != G_DBUS_ERROR_NO_REPLY)
                        log_warning("%s%s: Failed to call \"UndeclareEvent\" on event producer service: %s",
                                    "undeclare_state_event", error->message);
                g_clear_error(&error);
        } else {
                g_variant_unref(reply);
        }
        g_clear_object(&events.proxy);
        events.declaration_id = 0;
}
