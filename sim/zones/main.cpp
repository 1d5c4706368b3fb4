// sim-zones: the radar unit's zone service, played for tests and the demo.
#include "zone_scenario.h"

#include <gio/gio.h>
#include <glib-unix.h>

#include <csignal>
#include <cstdio>
#include <map>
#include <unistd.h>

namespace {

constexpr const char *bus_name = "com.zelk.RadarZones1";
constexpr const char *object_path = "/com/zelk/RadarZones1";
constexpr const char *areas_interface = "com.zelk.RadarZones1.Areas";

constexpr const char *introspection_xml = R"xml(
<node>
  <interface name="com.zelk.RadarZones1.Areas">
    <method name="GetZones">
      <arg direction="out" type="a(ia(sb))" name="zones"/>
    </method>
    <method name="GetZoneAreas">
      <arg direction="in" type="s" name="entry"/>
      <arg direction="in" type="i" name="zone"/>
      <arg direction="out" type="a(sa(dd))" name="areas"/>
    </method>
    <signal name="ZonesChanged">
      <arg type="a(ia(sb))" name="zones"/>
    </signal>
  </interface>
  <interface name="com.zelk.RadarZones1.Sim">
    <method name="SetZones">
      <arg direction="in" type="s" name="json"/>
    </method>
    <method name="SetReply">
      <arg direction="in" type="s" name="method"/>
      <arg direction="in" type="s" name="body"/>
    </method>
    <method name="EmitZonesChanged">
      <arg direction="in" type="s" name="body"/>
    </method>
    <method name="VanishOn">
      <arg direction="in" type="s" name="method"/>
    </method>
  </interface>
</node>)xml";

constexpr const char *help_text = R"txt(Owns com.zelk.RadarZones1 on the bus named by DBUS_SYSTEM_BUS_ADDRESS (point it at a
private dbus-daemon, e.g. one started with tests/rig/dbus-system.conf) and serves the
"zones" section of the scenario at /com/zelk/RadarZones1:

  com.zelk.RadarZones1.Areas
    GetZones() -> (a(ia(sb)))            each zone id with its entry names and enabled flags
    GetZoneAreas(s entry, i zone) -> (a(sa(dd)))   kind and polygon of each area of the entry
    signal ZonesChanged(a(ia(sb)))       sent whenever the zones are replaced

  com.zelk.RadarZones1.Sim (for tests)
    SetZones(s json)            replace the zones (a scenario object or a bare "zones"
                                array) and send ZonesChanged
    SetReply(s method, s body)  answer GetZones or GetZoneAreas with this GVariant text
                                from now on, whatever its type ("" restores the real answer)
    EmitZonesChanged(s body)    send ZonesChanged with this GVariant text as its body
                                ("" sends the current zones)
    VanishOn(s method)          exit without answering the next call of that method

Prints "sim-zones: ready" once the name is owned. SIGINT or SIGTERM stop it (status 0).)txt";

struct SimZonesState {
        std::vector<SimZone> zones;
        std::map<std::string, std::string> reply_overrides; // method -> GVariant text
        std::string vanish_on;
        GMainLoop *loop = nullptr;
        GDBusNodeInfo *introspection = nullptr;
        int status = 0;
};

SimZonesState sim;

// Sends a reply body as it is, even of a type the interface does not declare: the
// service's client has to cope with such replies.
void sim_zones_reply_raw(GDBusMethodInvocation *invocation, GVariant *body)
{
        GDBusMessage *reply = g_dbus_message_new_method_reply(g_dbus_method_invocation_get_message(invocation));
        g_dbus_message_set_body(reply, body);
        g_dbus_connection_send_message(g_dbus_method_invocation_get_connection(invocation), reply,
                                       G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr, nullptr);
        g_object_unref(reply);
        g_object_unref(invocation);
}

// Parses GVariant text that must be a tuple (a message body); floating result.
GVariant *sim_zones_parse_body(const std::string &text, GError **error)
{
        GVariant *body = g_variant_parse(nullptr, text.c_str(), nullptr, nullptr, error);
        if (body && !g_variant_is_of_type(body, G_VARIANT_TYPE_TUPLE)) {
                g_variant_unref(g_variant_ref_sink(body));
                g_set_error(error, G_DBUS_ERROR, G_DBUS_ERROR_INVALID_ARGS, "a body must be a tuple");
                return nullptr;
        }
        return body;
}

void sim_zones_emit(GDBusConnection *connection, GVariant *body)
{
        GError *error = nullptr;
        if (!g_dbus_connection_emit_signal(connection, nullptr, object_path, areas_interface, "ZonesChanged", body,
                                           &error)) {
                g_printerr("sim-zones: cannot send ZonesChanged: %s\n", error->message);
                g_error_free(error);
        }
}

void sim_zones_answer_areas(const gchar *method, GVariant *parameters, GDBusMethodInvocation *invocation)
{
        if (sim.vanish_on == method) {
                std::printf("sim-zones: vanishing during %s\n", method);
                std::fflush(stdout);
                _exit(0);
        }
        const auto override = sim.reply_overrides.find(method);
        if (override != sim.reply_overrides.end()) {
                sim_zones_reply_raw(invocation, sim_zones_parse_body(override->second, nullptr));
                return;
        }
        if (g_strcmp0(method, "GetZones") == 0) {
                g_dbus_method_invocation_return_value(invocation, zone_scenario_listing(sim.zones));
                return;
        }
        const gchar *entry = nullptr;
        gint32 zone = 0;
        g_variant_get(parameters, "(&si)", &entry, &zone);
        GVariant *areas = zone_scenario_areas(sim.zones, entry, zone);
        if (areas)
                g_dbus_method_invocation_return_value(invocation, areas);
        else
                g_dbus_method_invocation_return_error(invocation, G_DBUS_ERROR, G_DBUS_ERROR_INVALID_ARGS,
                                                      "zone %d has no entry \"%s\"", zone, entry);
}

void sim_zones_answer_sim(GDBusConnection *connection, const gchar *method, GVariant *parameters,
                          GDBusMethodInvocation *invocation)
{
        if (g_strcmp0(method, "VanishOn") == 0) {
                const gchar *target = nullptr;
                g_variant_get(parameters, "(&s)", &target);
                sim.vanish_on = target;
                g_dbus_method_invocation_return_value(invocation, nullptr);
                return;
        }
        if (g_strcmp0(method, "SetReply") == 0) {
                const gchar *target = nullptr;
                const gchar *text = nullptr;
                g_variant_get(parameters, "(&s&s)", &target, &text);
                GError *error = nullptr;
                GVariant *body = *text ? sim_zones_parse_body(text, &error) : nullptr;
                if (*text && !body) {
                        g_dbus_method_invocation_take_error(invocation, error);
                        return;
                }
                if (body)
                        g_variant_unref(g_variant_ref_sink(body));
                if (*text)
                        sim.reply_overrides[target] = text;
                else
                        sim.reply_overrides.erase(target);
                g_dbus_method_invocation_return_value(invocation, nullptr);
                return;
        }
        const gchar *text = nullptr;
        g_variant_get(parameters, "(&s)", &text);
        if (g_strcmp0(method, "SetZones") == 0) {
                std::string error;
                if (!zone_scenario_parse(text, sim.zones, &error)) {
                        g_dbus_method_invocation_return_error(invocation, G_DBUS_ERROR, G_DBUS_ERROR_INVALID_ARGS,
                                                              "zones: %s", error.c_str());
                        return;
                }
                g_dbus_method_invocation_return_value(invocation, nullptr);
                sim_zones_emit(connection, zone_scenario_listing(sim.zones));
                return;
        }
        // EmitZonesChanged
        GError *error = nullptr;
        GVariant *body = *text ? sim_zones_parse_body(text, &error) : zone_scenario_listing(sim.zones);
        if (!body) {
                g_dbus_method_invocation_take_error(invocation, error);
                return;
        }
        g_dbus_method_invocation_return_value(invocation, nullptr);
        sim_zones_emit(connection, body);
}

void sim_zones_on_call(GDBusConnection *connection, const gchar *, const gchar *, const gchar *interface,
                       const gchar *method, GVariant *parameters, GDBusMethodInvocation *invocation, gpointer)
{
        if (g_strcmp0(interface, areas_interface) == 0)
                sim_zones_answer_areas(method, parameters, invocation);
        else
                sim_zones_answer_sim(connection, method, parameters, invocation);
}

const GDBusInterfaceVTable sim_zones_vtable = {sim_zones_on_call, nullptr, nullptr, {}};

void sim_zones_on_bus(GDBusConnection *connection, const gchar *, gpointer)
{
        for (GDBusInterfaceInfo **info = sim.introspection->interfaces; *info; info++) {
                GError *error = nullptr;
                if (!g_dbus_connection_register_object(connection, object_path, *info, &sim_zones_vtable, nullptr,
                                                       nullptr, &error)) {
                        g_printerr("sim-zones: cannot register %s: %s\n", (*info)->name, error->message);
                        g_error_free(error);
                        sim.status = 1;
                        g_main_loop_quit(sim.loop);
                }
        }
}

void sim_zones_on_name(GDBusConnection *, const gchar *, gpointer)
{
        std::printf("sim-zones: ready\n");
        std::fflush(stdout);
}

void sim_zones_on_name_lost(GDBusConnection *, const gchar *name, gpointer)
{
        g_printerr("sim-zones: cannot own %s (is DBUS_SYSTEM_BUS_ADDRESS set to a running bus?)\n", name);
        sim.status = 1;
        g_main_loop_quit(sim.loop);
}

gboolean sim_zones_on_signal(gpointer)
{
        g_main_loop_quit(sim.loop);
        return G_SOURCE_CONTINUE;
}

bool sim_zones_load_scenario(const gchar *path)
{
        gchar *text = nullptr;
        gsize length = 0;
        GError *error = nullptr;
        if (!g_file_get_contents(path, &text, &length, &error)) {
                g_printerr("sim-zones: %s\n", error->message);
                g_error_free(error);
                return false;
        }
        std::string message;
        const bool ok = zone_scenario_parse(std::string(text, length), sim.zones, &message);
        if (!ok)
                g_printerr("sim-zones: %s: %s\n", path, message.c_str());
        g_free(text);
        return ok;
}

} // namespace

int main(int argc, char **argv)
{
        gchar *scenario = nullptr;
        const GOptionEntry entries[] = {
                {"scenario", 's', 0, G_OPTION_ARG_FILENAME, &scenario,
                 "Scenario file (JSON) whose \"zones\" section to serve; none: no zones", "FILE"},
                {},
        };
        GOptionContext *context = g_option_context_new("- simulated radar zone service");
        g_option_context_add_main_entries(context, entries, nullptr);
        g_option_context_set_description(context, help_text);
        GError *error = nullptr;
        const bool parsed = g_option_context_parse(context, &argc, &argv, &error);
        g_option_context_free(context);
        if (!parsed) {
                g_printerr("sim-zones: %s\n", error->message);
                g_error_free(error);
                return 2;
        }
        if (scenario && !sim_zones_load_scenario(scenario))
                return 2;
        g_free(scenario);

        sim.introspection = g_dbus_node_info_new_for_xml(introspection_xml, nullptr);
        sim.loop = g_main_loop_new(nullptr, FALSE);
        g_unix_signal_add(SIGINT, sim_zones_on_signal, nullptr);
        g_unix_signal_add(SIGTERM, sim_zones_on_signal, nullptr);
        const guint owner = g_bus_own_name(G_BUS_TYPE_SYSTEM, bus_name, G_BUS_NAME_OWNER_FLAGS_NONE, sim_zones_on_bus,
                                           sim_zones_on_name, sim_zones_on_name_lost, nullptr, nullptr);
        g_main_loop_run(sim.loop);
        g_bus_unown_name(owner);
        g_main_loop_unref(sim.loop);
        g_dbus_node_info_unref(sim.introspection);
        return sim.status;
}
