#include "sim_events_process.h"

#include <gtest/gtest.h>
#include <jansson.h>
#include <signal.h>

#include <algorithm>

namespace {

constexpr const char *events_bus_name = "com.zelk.EventProducerd1";
constexpr const char *events_object_path = "/com/zelk/EventProducerd1";
constexpr const char *events_sim_interface = "com.zelk.EventProducerd1.Sim";
// How often wait_for_states asks for the log: the calls it waits for come from another
// process, so there is nothing in this one to wake it.
constexpr gulong poll_interval_us = 20 * 1000;

std::string json_text_or_empty(json_t *object, const char *key)
{
        const char *text = json_string_value(json_object_get(object, key));
        return text ? text : "";
}

SimEventCall sim_events_parse_call(json_t *object)
{
        SimEventCall call;
        call.method = json_text_or_empty(object, "method");
        call.id = static_cast<int>(json_integer_value(json_object_get(object, "id")));
        call.args = json_text_or_empty(object, "args");
        call.state = json_text_or_empty(object, "state");
        call.time = json_integer_value(json_object_get(object, "time"));
        call.sender = json_text_or_empty(object, "sender");
        call.failed = json_is_true(json_object_get(object, "failed"));
        return call;
}

std::string joined(const std::vector<std::string> &items)
{
        std::string out;
        for (const std::string &item : items)
                out += (out.empty() ? "" : ", ") + item;
        return "[" + out + "]";
}

} // namespace

SimEventsProcess::SimEventsProcess(const std::string &bus_address)
{
        process_ = std::make_unique<ChildProcess>(std::vector<std::string>{TRELVO_SIM_EVENTS},
                                                  std::vector<std::string>{"DBUS_SYSTEM_BUS_ADDRESS=" + bus_address});
        if (!process_->wait_for_line("sim-events: ready"))
                return;
        GError *error = nullptr;
        connection_ = g_dbus_connection_new_for_address_sync(
                bus_address.c_str(),
                static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                                  G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
                nullptr, nullptr, &error);
        if (!connection_) {
                ADD_FAILURE() << "cannot connect to " << bus_address << ": " << error->message;
                g_error_free(error);
                return;
        }
        g_dbus_connection_set_exit_on_close(connection_, FALSE);
        ready_ = true;
}

SimEventsProcess::~SimEventsProcess()
{
        stop();
        if (connection_) {
                g_dbus_connection_close_sync(connection_, nullptr, nullptr);
                g_object_unref(connection_);
        }
}

GVariant *SimEventsProcess::call(const char *method, GVariant *args)
{
        g_autoptr(GVariant) sunk = args ? g_variant_ref_sink(args) : nullptr;
        if (!connection_) {
                ADD_FAILURE() << "sim-events " << method << ": not connected";
                return nullptr;
        }
        GError *error = nullptr;
        GVariant *reply = g_dbus_connection_call_sync(connection_, events_bus_name, events_object_path,
                                                      events_sim_interface, method, sunk, nullptr,
                                                      G_DBUS_CALL_FLAGS_NONE, -1, nullptr, &error);
        if (!reply) {
                ADD_FAILURE() << "sim-events " << method << ": " << error->message;
                g_error_free(error);
        }
        return reply;
}

std::vector<SimEventCall> SimEventsProcess::log()
{
        std::vector<SimEventCall> calls;
        g_autoptr(GVariant) reply = call("GetLog", nullptr);
        if (!reply)
                return calls;
        const gchar *text = nullptr;
        g_variant_get(reply, "(&s)", &text);
        json_error_t error;
        json_t *array = json_loads(text, 0, &error);
        if (!json_is_array(array)) {
                ADD_FAILURE() << "sim-events sent a log that is not a JSON array: " << text;
        } else {
                size_t index;
                json_t *object;
                json_array_foreach(array, index, object)
                        calls.push_back(sim_events_parse_call(object));
        }
        json_decref(array);
        return calls;
}

std::vector<std::string> SimEventsProcess::states()
{
        std::vector<std::string> sent;
        for (const SimEventCall &c : log())
                if (c.method == "SendEvent")
                        sent.push_back(c.state);
        return sent;
}

bool SimEventsProcess::wait_for_states(const std::vector<std::string> &expected, double seconds)
{
        const gint64 deadline = g_get_monotonic_time() + static_cast<gint64>(seconds * G_TIME_SPAN_SECOND);
        std::vector<std::string> sent;
        for (;;) {
                sent = states();
                if (sent.size() >= expected.size() && std::equal(expected.begin(), expected.end(),
                                                                 sent.end() - static_cast<long>(expected.size())))
                        return true;
                if (g_get_monotonic_time() >= deadline || !ready_)
                        break;
                g_usleep(poll_interval_us);
        }
        ADD_FAILURE() << "sim-events: the states sent " << joined(sent) << " do not end with " << joined(expected)
                      << " after " << seconds << " s";
        return false;
}

bool SimEventsProcess::fail_on(const std::string &method)
{
        g_autoptr(GVariant) reply = call("FailOn", g_variant_new("(s)", method.c_str()));
        return reply != nullptr;
}

bool SimEventsProcess::vanish_on(const std::string &method)
{
        g_autoptr(GVariant) reply = call("VanishOn", g_variant_new("(s)", method.c_str()));
        return reply != nullptr;
}

bool SimEventsProcess::clear()
{
        g_autoptr(GVariant) reply = call("Clear", nullptr);
        return reply != nullptr;
}

void SimEventsProcess::stop()
{
        if (!process_ || process_->exited())
                return;
        process_->send_signal(SIGTERM);
        process_->wait_exit();
}

int SimEventsProcess::wait_exit(double seconds)
{
        ready_ = false;
        return process_->wait_exit(seconds);
}
