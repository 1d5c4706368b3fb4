#include "scenario.h"

#include <gio/gio.h>
#include <jansson.h>

#include <limits>
#include <memory>

namespace {

struct JsonUnref {
        void operator()(json_t *json) const { json_decref(json); }
};
using JsonPtr = std::unique_ptr<json_t, JsonUnref>;

bool scenario_fail(GError **error, const std::string &message)
{
        g_set_error_literal(error, G_IO_ERROR, G_IO_ERROR_INVALID_DATA, message.c_str());
        return false;
}

bool scenario_read_positive(json_t *root, const char *key, double *value, GError **error)
{
        json_t *item = json_object_get(root, key);
        if (!item)
                return true;
        if (!json_is_number(item) || json_number_value(item) <= 0.0)
                return scenario_fail(error, std::string("\"") + key + "\" must be a positive number");
        *value = json_number_value(item);
        return true;
}

bool scenario_read_classes(json_t *root, Scenario *scenario, GError **error)
{
        json_t *classes = json_object_get(root, "classes");
        if (!classes)
                return true;
        if (!json_is_array(classes))
                return scenario_fail(error, "\"classes\" must be an array of strings");
        scenario->classes.clear();
        size_t i;
        json_t *name;
        json_array_foreach(classes, i, name)
        {
                if (!json_is_string(name))
                        return scenario_fail(error, "\"classes\" must be an array of strings");
                scenario->classes.emplace_back(json_string_value(name));
        }
        return true;
}

bool scenario_read_waypoints(json_t *list, ScenarioObject *object, const std::string &where, GError **error)
{
        if (!json_is_array(list) || json_array_size(list) == 0)
                return scenario_fail(error, where + ": \"waypoints\" must be a non-empty array of [x, y]");
        size_t i;
        json_t *point;
        json_array_foreach(list, i, point)
        {
                if (!json_is_array(point) || json_array_size(point) != 2 || !json_is_number(json_array_get(point, 0)) ||
                    !json_is_number(json_array_get(point, 1)))
                        return scenario_fail(error, where + ": waypoint " + std::to_string(i) + " is not [x, y]");
                object->waypoints.push_back(
                        {json_number_value(json_array_get(point, 0)), json_number_value(json_array_get(point, 1))});
        }
        return true;
}

bool scenario_read_object(json_t *item, size_t index, ScenarioObject *object, GError **error)
{
        const std::string where = "object " + std::to_string(index);
        if (!json_is_object(item))
                return scenario_fail(error, where + " is not an object");
        json_t *id = json_object_get(item, "id");
        if (!json_is_integer(id) || json_integer_value(id) < 0 ||
            json_integer_value(id) > std::numeric_limits<uint32_t>::max())
                return scenario_fail(error, where + ": \"id\" must be an integer from 0 to 4294967295");
        object->id = static_cast<uint32_t>(json_integer_value(id));
        // The class is not checked against the names: a scenario may show an index the
        // service has no name for.
        json_t *class_index = json_object_get(item, "class");
        if (!json_is_integer(class_index) || json_integer_value(class_index) < 0 ||
            json_integer_value(class_index) > std::numeric_limits<uint32_t>::max())
                return scenario_fail(error, where + ": \"class\" must be a non-negative integer");
        object->class_index = static_cast<uint32_t>(json_integer_value(class_index));
        json_t *speed = json_object_get(item, "speed");
        if (speed) {
                if (!json_is_number(speed) || json_number_value(speed) < 0.0)
                        return scenario_fail(error, where + ": \"speed\" must be a number of 0 or more");
                object->speed = json_number_value(speed);
        }
        json_t *start = json_object_get(item, "start_s");
        if (start) {
                if (!json_is_number(start) || json_number_value(start) < 0.0)
                        return scenario_fail(error, where + ": \"start_s\" must be a number of 0 or more");
                object->start_s = json_number_value(start);
        }
        json_t *loop = json_object_get(item, "loop");
        if (loop) {
                if (!json_is_boolean(loop))
                        return scenario_fail(error, where + ": \"loop\" must be true or false");
                object->loop = json_is_true(loop);
        }
        return scenario_read_waypoints(json_object_get(item, "waypoints"), object, where, error);
}

bool scenario_read_objects(json_t *root, Scenario *scenario, GError **error)
{
        json_t *objects = json_object_get(root, "objects");
        if (!objects)
                return true;
        if (!json_is_array(objects))
                return scenario_fail(error, "\"objects\" must be an array");
        size_t i;
        json_t *item;
        json_array_foreach(objects, i, item)
        {
                ScenarioObject object;
                if (!scenario_read_object(item, i, &object, error))
                        return false;
                scenario->objects.push_back(std::move(object));
        }
        return true;
}

bool scenario_read(json_t *root, Scenario *scenario, GError **error)
{
        if (!json_is_object(root))
                return scenario_fail(error, "the scenario must be a JSON object");
        return scenario_read_positive(root, "rate_hz", &scenario->rate_hz, error) &&
               scenario_read_positive(root, "max_range", &scenario->max_range, error) &&
               scenario_read_classes(root, scenario, error) && scenario_read_objects(root, scenario, error);
}

bool scenario_json_failed(const json_error_t &json_error, GError **error)
{
        return scenario_fail(error, std::string(json_error.text) + " (line " + std::to_string(json_error.line) + ")");
}

} // namespace

bool scenario_load(const char *path, Scenario *scenario, GError **error)
{
        json_error_t json_error;
        JsonPtr root(json_load_file(path, 0, &json_error));
        if (!root)
                return scenario_json_failed(json_error, error);
        return scenario_read(root.get(), scenario, error);
}

bool scenario_parse(const char *text, Scenario *scenario, GError **error)
{
        json_error_t json_error;
        JsonPtr root(json_loads(text, 0, &json_error));
        if (!root)
                return scenario_json_failed(json_error, error);
        return scenario_read(root.get(), scenario, error);
}
