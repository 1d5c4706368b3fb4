// A payload of the radar zone service as a GVariant of any type: as a zone listing (a
// "GetZones" reply or "ZonesChanged" body) and as a "GetZoneAreas" reply, into the
// exclusion zone store, which then answers the exclusion test over a grid of points.
//
// Input: a GVariant type string, a NUL byte, then the value serialized in GVariant's
// form (any bytes: GVariant reads untrusted data safely, the fuzzed code is ours).
#include "exclude_areas.h"
#include "fuzz_support.h"
#include "radar_zones.h"

#include <glib.h>

#include <cstring>

namespace {

constexpr const char *default_type = "(a(sa(dd)))";

// The value the input describes; NULL when its type is no usable type.
GVariant *zones_fuzz_value(const uint8_t *data, size_t size)
{
        const auto *end = static_cast<const uint8_t *>(memchr(data, '\0', size));
        const std::string type = end ? std::string(reinterpret_cast<const char *>(data), end - data) : default_type;
        const size_t skip = end ? static_cast<size_t>(end - data) + 1 : 0;
        if (!g_variant_type_string_is_valid(type.c_str()) || !g_variant_type_is_definite(G_VARIANT_TYPE(type.c_str())))
                return nullptr;
        g_autoptr(GBytes) bytes = g_bytes_new(data + skip, size - skip); // a copy: GVariant wants it aligned
        return g_variant_ref_sink(g_variant_new_from_bytes(G_VARIANT_TYPE(type.c_str()), bytes, FALSE));
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
        fuzz_quiet_logs();
        exclude_areas_init();
        return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
        g_autoptr(GVariant) value = zones_fuzz_value(data, size);
        if (!value)
                return 0;
        // Without a zone service the listing's entries are walked but never asked for.
        exclude_areas_clear();
        radar_zones_load(value);
        radar_zones_load_areas(1, value);
        radar_zones_load_areas(2, value);
        exclude_areas_publish();
        for (int i = -5; i <= 5; i++)
                for (int j = -5; j <= 5; j++)
                        exclude_areas_contains(i / 4.0, j / 4.0);
        return 0;
}
