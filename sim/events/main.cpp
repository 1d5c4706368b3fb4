// sim-events: the radar unit's event producer, played for tests and the demo. It accepts
// declarations and events like the unit's producer and records every call, so that tests
// and the live view can see what the service published.
#include <gio/gio.h>
#include <glib-unix.h>
#include <jansson.h>

#include <csignal>
#include <cstdio>
#include <set>
#include <string>
#include <unistd.h>

namespace {

constexpr const char *bus_name = "com.zelk.EventProducerd1";
constexpr const char *object_path = "/com/zelk/EventProducerd1";
constexpr const char *producer_interface = "com.zelk.EventProducerd1";
constexpr const char *sim_interface = "com.zelk.EventProducerd1.Sim";

constexpr const char *introspection_xml = R"xml(
<node>
  <interface name="com.zelk.EventProducerd1">
    <method name="DeclareEvent">
      <arg direction="in" type="b" name="stateless"/>
      <arg direction="in" type="a{ss}" name="value_types"/>
      <arg direction="in" type="a{sv}" name="fixed_values"/>
      <arg direction="in" type="a{ss}" name="nice_names"/>
      <arg direction="in" type="a{ss}" name="value_nice_names"/>
      <arg direction="in" type="a{ss}" name="namespaces"/>
      <arg direction="in" type="a{sv}" name="tags"/>
      <arg direction="in" type="s" name="state_key"/>
      <arg direction="out" type="i" name="id"/>
    </method>
    <method name="SendEvent">
      <arg direction="in" type="i" name="id"/>
      <arg direction="in" type="a{sv}" name="values"/>
      <arg direction="in" type="x" name="time_us"/>
    </method>
    <method name="UndeclareEvent">
      <arg direction="in" type="i" name="id"/>
    </method>
  </interface>
  <interface name="com.zelk.EventProducerd1.Sim">
    <method name="GetLog">
      <arg direction="out" type="s" name="json"/>
    </method>
    <method name="Clear"/>
    <method name="FailOn">
      <arg direction="in" type="s" name="method"/>
    </method>
    <method name="VanishOn">
      <arg direction="in" type="s" name="method"/>
    </method>
    <signal name="Recorded">
      <arg type="s" name="json"/>
    </signal>
  </interface>
</node>)xml";

constexpr const char *help_text = R"txt(Owns com.zelk.EventProducerd1 on the bus named by DBUS_SYSTEM_BUS_ADDRESS (point it at a
private dbus-daemon, e.g. one started with tests/rig/dbus-system.conf) and serves, at
/com/zelk/EventProducerd1:

  com.zelk.EventProducerd1
    DeclareEvent(b, a{ss}, a{sv}, a{ss}, a{ss}, a{ss}, a{sv}, s) -> (i)
                                 declares an event type; returns a fresh id: 1, 2, ...
    SendEvent(i id, a{sv} values, x time_us)
                                 one event of a declared type (an unknown id is an error)
    UndeclareEvent(i id)         withdraws a declaration (an unknown id is an error)

  com.zelk.EventProducerd1.Sim (for tests and the live view)
    GetLog() -> (s)              the recorded calls as a JSON array, oldest first
    Clear()                      forget the recorded calls (ids keep counting)
    FailOn(s method)             answer that method with a D-Bus error from now on
                                 ("" answers every method again)
    VanishOn(s method)           exit without answering the next call of that method
    signal Recorded(s json)      one recorded call, as it was added to the log

Each recorded call is an object: "method"; "id" (the declaration id the call named, or
the one DeclareEvent returned, 0 when it failed); "args" (the call's arguments as GVariant
text); "state" (the "state" value of a SendEvent, else null); "time" (a SendEvent's time
in microseconds since the epoch, else null); "sender" (the caller's unique bus name);
"failed" (true when the call was answered with an error).

Prints "sim-events: ready" once the name is owned, then one line per call, e.g.
"sim-events: SendEvent 1 state=connecting". SIGINT or SIGTERM stop it (status 0).)txt";

struct SimEventsState {
        json_t *log = nullptr;
        std::set<gint32> declared;
        gint32 last_id = 0;
        std::string fail_on;
        std::string vanish_on;
        GMainLoop *loop = nullptr;
        GDBusNodeInfo *introspection = nullptr;
        int status = 0;
};

SimEventsState sim;

// The "state" value of a SendEvent's values, if it is a string.
json_t *sim_events_state_of(GVariant *values)
{
        const gchar *state = nullptr;
        if (g_variant_lookup(values, "state", "&s", &state))
                return json_string(state);
        return json_null();
}

// Adds one call to the log, prints it and announces it with "Recorded".
void sim_events_record(GDBusMethodInvocation *invocation, const gchar *method, gint32 id, GVariant *parameters,
                       json_t *state, json_t *time, bool failed)
{
        gchar *args = g_variant_print(parameters, FALSE);
        json_t *call = json_pack("{s:s, s:i, s:s, s:o, s:o, s:s?, s:b}", "method", method, "id", id, "args", args,
                                 "state", state, "time", time, "sender",
                                 g_dbus_method_invocation_get_sender(invocation), "failed", failed);
        g_free(args);
        json_array_append(sim.log, call);

        std::printf("sim-events: %s %d", method, id);
        if (json_is_string(state))
                std::printf(" state=%s", json_string_value(state));
        std::printf("%s\n", failed ? " (answered with an error)" : "");
        std::fflush(stdout);

        char *text = json_dumps(call, JSON_COMPACT);
        g_dbus_connection_emit_signal(g_dbus_method_invocation_get_connection(invocation), nullptr, object_path,
                                      sim_interface, "Recorded", g_variant_new("(s)", text), nullptr);
        free(text);
        json_decref(call);
}

void sim_events_answer_producer(const gchar *method, GVariant *parameters, GDBusMethodInvocation *invocation)
{
        if (sim.vanish_on == method) {
                std::printf("sim-events: vanishing during %s\n", method);
                std::fflush(stdout);
                _exit(0);
        }
        const bool failing = sim.fail_on == method;
        if (g_strcmp0(method, "DeclareEvent") == 0) {
                const gint32 id = failing ? 0 : ++sim.last_id;
                sim_events_record(invocation, method, id, parameters, json_null(), json_null(), failing);
                if (failing) {
                        g_dbus_method_invocation_return_error(invocation, G_DBUS_ERROR, G_DBUS_ERROR_FAILED,
                                                              "DeclareEvent refused (FailOn)");
                        return;
                }
                sim.declared.insert(id);
                g_dbus_method_invocation_return_value(invocation, g_variant_new("(i)", id));
                return;
        }
        gint32 id = 0;
        json_t *state = json_null();
        json_t *time = json_null();
        if (g_strcmp0(method, "SendEvent") == 0) {
                GVariant *values = nullptr;
                gint64 time_us = 0;
                g_variant_get(parameters, "(i@a{sv}x)", &id, &values, &time_us);
                json_decref(state);
                state = sim_events_state_of(values);
                json_decref(time);
                time = json_integer(time_us);
                g_variant_unref(values);
        } else {
                g_variant_get(parameters, "(i)", &id);
        }
        const bool known = sim.declared.count(id) > 0;
        sim_events_record(invocation, method, id, parameters, state, time, failing || !known);
        if (failing) {
                g_dbus_method_invocation_return_error(invocation, G_DBUS_ERROR, G_DBUS_ERROR_FAILED,
                                                      "%s refused (FailOn)", method);
                return;
        }
        if (!known) {
                g_dbus_method_invocation_return_error(invocation, G_DBUS_ERROR, G_DBUS_ERROR_INVALID_ARGS,
                                                      "no event declared with id %d", id);
                return;
        }
        if (g_strcmp0(method, "UndeclareEvent") == 0)
                sim.declared.erase(id);
        g_dbus_method_invocation_return_value(invocation, nullptr);
}

void sim_events_answer_sim(const gchar *method, GVariant *parameters, GDBusMethodInvocation *invocation)
{
        if (g_strcmp0(method, "GetLog") == 0) {
                char *text = json_dumps(sim.log, JSON_COMPACT);
                g_dbus_method_invocation_return_value(invocation, g_variant_new("(s)", text));
                free(text);
                return;
        }
        if (g_strcmp0(method, "Clear") == 0) {
                json_array_clear(sim.log);
                g_dbus_method_invocation_return_value(invocation, nullptr);
                return;
        }
        const gchar *target = nullptr;
        g_variant_get(parameters, "(&s)", &target);
        if (g_strcmp0(method, "FailOn") == 0)
                sim.fail_on = target;
        else
                sim.vanish_on = target;
        g_dbus_method_invocation_return_value(invocation, nullptr);
}

void sim_events_on_call(GDBusConnection *, const gchar *, const gchar *, const gchar *interface, const gchar *method,
                        GVariant *parameters, GDBusMethodInvocation *invocation, gpointer)
{
        if (g_strcmp0(interface, producer_interface) == 0)
                sim_events_answer_producer(method, parameters, invocation);
        else
                sim_events_answer_sim(method, parameters, invocation);
}

const GDBusInterfaceVTable sim_events_vtable = {sim_events_on_call, nullptr, nullptr, {}};

void sim_events_on_bus(GDBusConnection *connection, const gchar *, gpointer)
{
        for (GDBusInterfaceInfo **info = sim.introspection->interfaces; *info; info++) {
                GError *error = nullptr;
                if (!g_dbus_connection_register_object(connection, object_path, *info, &sim_events_vtable, nullptr,
                                                       nullptr, &error)) {
                        g_printerr("sim-events: cannot register %s: %s\n", (*info)->name, error->message);
                        g_error_free(error);
                        sim.status = 1;
                        g_main_loop_quit(sim.loop);
                }
        }
}

void sim_events_on_name(GDBusConnection *, const gchar *, gpointer)
{
        std::printf("sim-events: ready\n");
        std::fflush(stdout);
}

void sim_events_on_name_lost(GDBusConnection *, const gchar *name, gpointer)
{
        g_printerr("sim-events: cannot own %s (is DBUS_SYSTEM_BUS_ADDRESS set to a running bus?)\n", name);
        sim.status = 1;
        g_main_loop_quit(sim.loop);
}

gboolean sim_events_on_signal(gpointer)
{
        g_main_loop_quit(sim.loop);
        return G_SOURCE_CONTINUE;
}

} // namespace

int main(int argc, char **argv)
{
        GOptionContext *context = g_option_context_new("- simulated event producer");
        g_option_context_set_description(context, help_text);
        GError *error = nullptr;
        const bool parsed = g_option_context_parse(context, &argc, &argv, &error);
        g_option_context_free(context);
        if (!parsed) {
                g_printerr("sim-events: %s\n", error->message);
                g_error_free(error);
                return 2;
        }

        sim.log = json_array();
        sim.introspection = g_dbus_node_info_new_for_xml(introspection_xml, nullptr);
        sim.loop = g_main_loop_new(nullptr, FALSE);
        g_unix_signal_add(SIGINT, sim_events_on_signal, nullptr);
        g_unix_signal_add(SIGTERM, sim_events_on_signal, nullptr);
        const guint owner = g_bus_own_name(G_BUS_TYPE_SYSTEM, bus_name, G_BUS_NAME_OWNER_FLAGS_NONE, sim_events_on_bus,
                                           sim_events_on_name, sim_events_on_name_lost, nullptr, nullptr);
        g_main_loop_run(sim.loop);
        g_bus_unown_name(owner);
        g_main_loop_unref(sim.loop);
        g_dbus_node_info_unref(sim.introspection);
        json_decref(sim.log);
        return sim.status;
}
