#include "zone_scenario.h"

#include <jansson.h>

#include <algorithm>

namespace {

bool zone_scenario_read_polygon(json_t *json, SimArea &area, std::string *error)
{
        if (!json_is_array(json)) {
                *error = "\"polygon\" must be an array of [x, y] pairs";
                return false;
        }
        size_t i = 0;
        json_t *vertex = nullptr;
        json_array_foreach(json, i, vertex)
        {
                if (!json_is_array(vertex) || json_array_size(vertex) != 2 ||
                    !json_is_number(json_array_get(vertex, 0)) || !json_is_number(json_array_get(vertex, 1))) {
                        *error = "each vertex must be a pair of numbers";
                        return false;
                }
                area.polygon.emplace_back(json_number_value(json_array_get(vertex, 0)),
                                          json_number_value(json_array_get(vertex, 1)));
        }
        return true;
}

bool zone_scenario_read_area(json_t *json, SimArea &area, std::string *error)
{
        json_t *name = json_object_get(json, "name");
        json_t *enabled = json_object_get(json, "enabled");
        json_t *kind = json_object_get(json, "kind");
        if (!json_is_object(json) || !json_is_string(name)) {
                *error = "each area needs a string \"name\"";
                return false;
        }
        if ((enabled && !json_is_boolean(enabled)) || (kind && !json_is_string(kind))) {
                *error = "\"enabled\" must be a boolean and \"kind\" a string";
                return false;
        }
        area.name = json_string_value(name);
        area.enabled = !enabled || json_is_true(enabled);
        if (kind)
                area.kind = json_string_value(kind);
        return zone_scenario_read_polygon(json_object_get(json, "polygon"), area, error);
}

bool zone_scenario_read_zone(json_t *json, SimZone &zone, std::string *error)
{
        json_t *id = json_object_get(json, "id");
        json_t *areas = json_object_get(json, "areas");
        if (!json_is_object(json) || !json_is_integer(id) || !json_is_array(areas)) {
                *error = "each zone needs an integer \"id\" and an \"areas\" array";
                return false;
        }
        zone.id = static_cast<gint32>(json_integer_value(id));
        size_t i = 0;
        json_t *area = nullptr;
        json_array_foreach(areas, i, area)
        {
                if (!zone_scenario_read_area(area, zone.areas.emplace_back(), error))
                        return false;
        }
        return true;
}

} // namespace

bool zone_scenario_parse(const std::string &text, std::vector<SimZone> &zones, std::string *error)
{
        json_error_t json_error;
        json_t *root = json_loadb(text.data(), text.size(), 0, &json_error);
        if (!root) {
                *error = std::string("line ") + std::to_string(json_error.line) + ": " + json_error.text;
                return false;
        }
        json_t *list = json_is_array(root) ? root : json_object_get(root, "zones");
        std::vector<SimZone> parsed;
        bool ok = true;
        if (list && !json_is_array(list)) {
                *error = "\"zones\" must be an array";
                ok = false;
        } else if (!list && !json_is_object(root)) {
                *error = "expected a scenario object or an array of zones";
                ok = false;
        } else if (list) {
                size_t i = 0;
                json_t *zone = nullptr;
                json_array_foreach(list, i, zone)
                {
                        if (!(ok = zone_scenario_read_zone(zone, parsed.emplace_back(), error)))
                                break;
                }
        }
        json_decref(root);
        if (ok)
                zones = std::move(parsed);
        return ok;
}

GVariant *zone_scenario_listing(const std::vector<SimZone> &zones)
{
        GVariantBuilder builder;
        g_variant_builder_init(&builder, G_VARIANT_TYPE("a(ia(sb))"));
        for (const SimZone &zone : zones) {
                g_variant_builder_open(&builder, G_VARIANT_TYPE("(ia(sb))"));
                g_variant_builder_add(&builder, "i", zone.id);
                g_variant_builder_open(&builder, G_VARIANT_TYPE("a(sb)"));
                std::vector<std::string> listed;
                for (const SimArea &area : zone.areas) {
                        if (std::find(listed.begin(), listed.end(), area.name) != listed.end())
                                continue;
                        listed.push_back(area.name);
                        g_variant_builder_add(&builder, "(sb)", area.name.c_str(), area.enabled ? TRUE : FALSE);
                }
                g_variant_builder_close(&builder);
                g_variant_builder_close(&builder);
        }
        return g_variant_new("(@a(ia(sb)))", g_variant_builder_end(&builder));
}

GVariant *zone_scenario_areas(const std::vector<SimZone> &zones, const std::string &name, gint32 zone_id)
{
        const auto zone = std::find_if(zones.begin(), zones.end(), [&](const SimZone &z) { return z.id == zone_id; });
        if (zone == zones.end())
                return nullptr;
        GVariantBuilder builder;
        g_variant_builder_init(&builder, G_VARIANT_TYPE("a(sa(dd))"));
        bool found = false;
        for (const SimArea &area : zone->areas) {
                if (area.name != name)
                        continue;
                found = true;
                g_variant_builder_open(&builder, G_VARIANT_TYPE("(sa(dd))"));
                g_variant_builder_add(&builder, "s", area.kind.c_str());
                g_variant_builder_open(&builder, G_VARIANT_TYPE("a(dd)"));
                for (const auto &[x, y] : area.polygon)
                        g_variant_builder_add(&builder, "(dd)", x, y);
                g_variant_builder_close(&builder);
                g_variant_builder_close(&builder);
        }
        if (!found) {
                g_variant_builder_clear(&builder);
                return nullptr;
        }
        return g_variant_new("(@a(sa(dd)))", g_variant_builder_end(&builder));
}
