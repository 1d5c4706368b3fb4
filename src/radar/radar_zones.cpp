#include "radar_zones.h"

#include "exclude_areas.h"
#include "log.h"

namespace {

constexpr const char *zones_bus_name = "com.zelk.RadarZones1";
constexpr const char *zones_object_path = "/com/zelk/RadarZones1";
constexpr const char *zones_interface = "com.zelk.RadarZones1.Areas";
constexpr const char *exclude_area_kind = "excludeArea";

struct ZoneClient {
        GDBusProxy *proxy;
        gulong name_owner_handler;
        gulong signal_handler;
};

ZoneClient client; // file-level, so it starts zeroed: only non-zero starts are written

// The first element of a reply or signal body when it has the expected type; nullptr
// for a body that is missing, empty or of another layout. Elements after the first
// are not read.
GVariant *radar_zones_first_element(GVariant *body, const GVariantType *type)
{
        if (!body || !g_variant_is_of_type(body, G_VARIANT_TYPE_TUPLE) || g_variant_n_children(body) == 0)
                return nullptr;
        GVariant *first = g_variant_get_child_value(body, 0);
        if (g_variant_is_of_type(first, type))
                return first;
        g_variant_unref(first);
        return nullptr;
}

// Adds the exclusion areas of one active (zone, entry) pair. An entry the service cannot
// answer for contributes nothing, silently: the rest of the zones still load.
void radar_zones_load_entry(gint32 zone_id, const gchar *entry)
{
        if (!client.proxy)
                return;
        GError *error = nullptr;
        GVariant *reply = g_dbus_proxy_call_sync(client.proxy, "GetZoneAreas", g_variant_new("(si)", entry, zone_id),
                                                 G_DBUS_CALL_FLAGS_NONE, -1, nullptr, &error);
        if (!reply) {
                g_clear_error(&error);
                return;
        }
        radar_zones_load_areas(zone_id, reply);
        g_variant_unref(reply);
}

void radar_zones_load_zone(GVariant *zone)
{
        gint32 zone_id;
        GVariant *entries;
        g_variant_get(zone, "(i@a(sb))", &zone_id, &entries);
        GVariantIter iter;
        g_variant_iter_init(&iter, entries);
        const gchar *entry;
        gboolean active;
        while (g_variant_iter_next(&iter, "(&sb)", &entry, &active))
                if (active)
                        radar_zones_load_entry(zone_id, entry);
        g_variant_unref(entries);
}

// Rebuilds the store from a fresh "GetZones" reply or "ZonesChanged" body.
void radar_zones_rebuild(GVariant *body)
{
        exclude_areas_clear();
        radar_zones_load(body);
        exclude_areas_publish();
}

// The zone service (re)started: its areas may be new. When it went away the store keeps
// the last areas it gave.
void radar_zones_on_name_owner(GObject *, GParamSpec *, gpointer user_data)
{
        GDBusProxy *proxy = *static_cast<GDBusProxy **>(user_data);
        gchar *owner = g_dbus_proxy_get_name_owner(proxy);
        if (!owner)
                return;
        g_free(owner);
        radar_zones_fetch();
}

void radar_zones_on_signal(GDBusProxy *, const gchar *, const gchar *signal_name, GVariant *parameters, gpointer)
{
        if (g_strcmp0(signal_name, "ZonesChanged") != 0)
                return;
        radar_zones_rebuild(parameters);
}

} // namespace

gboolean radar_zones_init(void)
{
        GError *error = nullptr;
        client.proxy = g_dbus_proxy_new_for_bus_sync(G_BUS_TYPE_SYSTEM, G_DBUS_PROXY_FLAGS_NONE, nullptr,
                                                     zones_bus_name, zones_object_path, zones_interface, nullptr,
                                                     &error);
        if (!client.proxy) {
                log_error("%sFailed to get radar_zones proxy: %s", error->message);
                g_clear_error(&error);
                return FALSE;
        }
        client.name_owner_handler =
                g_signal_connect_data(client.proxy, "notify::g-name-owner", G_CALLBACK(radar_zones_on_name_owner),
                                      &client.proxy, nullptr, static_cast<GConnectFlags>(0));
        if (!client.name_owner_handler) {
                log_error("%sFailed to connect to g-name-owner on %s", zones_bus_name);
                return FALSE;
        }
        client.signal_handler = g_signal_connect_data(client.proxy, "g-signal", G_CALLBACK(radar_zones_on_signal),
                                                      &client.proxy, nullptr, static_cast<GConnectFlags>(0));
        if (!client.signal_handler) {
                log_warning("%sFailed to connect to radar zones on %s", zones_bus_name);
                return FALSE;
        }
        // A zone service that is not up yet is no reason to stop: its areas arrive when
        // its name gets an owner.
        radar_zones_fetch();
        return TRUE;
}

void radar_zones_cleanup(void)
{
        if (!client.proxy)
                return;
        g_clear_signal_handler(&client.signal_handler, client.proxy);
        g_clear_signal_handler(&client.name_owner_handler, client.proxy);
        g_object_unref(client.proxy);
        client.proxy = nullptr;
}

void radar_zones_fetch(void)
{
        GVariant *reply = nullptr;
        if (client.proxy) {
                GError *error = nullptr;
                reply = g_dbus_proxy_call_sync(client.proxy, "GetZones", nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr,
                                               &error);
                if (!reply) {
                        log_error("%sFailed to call GetZones: %s", error->message);
                        g_clear_error(&error);
                }
        }
        radar_zones_rebuild(reply);
        if (reply)
                g_variant_unref(reply);
}

void radar_zones_load(GVariant *body)
{
        GVariant *zones = radar_zones_first_element(body, G_VARIANT_TYPE("a(ia(sb))"));
        if (!zones) {
                log_error("%sCould not get zones");
                return;
        }
        GVariantIter iter;
        g_variant_iter_init(&iter, zones);
        GVariant *zone = nullptr;
        while ((zone = g_variant_iter_next_value(&iter))) {
                radar_zones_load_zone(zone);
                g_variant_unref(zone);
        }
        g_variant_unref(zones);
}

void radar_zones_load_areas(gint32 zone_id, GVariant *reply)
{
        GVariant *areas = radar_zones_first_element(reply, G_VARIANT_TYPE("a(sa(dd))"));
        if (!areas)
                return;
        GVariantIter iter;
        g_variant_iter_init(&iter, areas);
        const gchar *kind = nullptr;
        GVariant *polygon = nullptr;
        while (g_variant_iter_next(&iter, "(&s@a(dd))", &kind, &polygon)) {
                if (g_strcmp0(kind, exclude_area_kind) == 0)
                        exclude_areas_add(zone_id, polygon);
                g_variant_unref(polygon);
        }
        g_variant_unref(areas);
}
