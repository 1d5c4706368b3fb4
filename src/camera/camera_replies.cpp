#include "camera_replies.h"

#include <glib.h>

#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>

namespace {

// A decimal int the way "%d" reads one, except that a number out of int's range does not
// read (scanf would make it undefined). end, if given, moves past what was read.
std::optional<int> replies_read_int(const char *text, const char **end = nullptr)
{
        char *stop = nullptr;
        errno = 0;
        const long v = std::strtol(text, &stop, 10);
        if (stop == text || errno == ERANGE || v > INT_MAX || v < INT_MIN)
                return std::nullopt;
        if (end)
                *end = stop;
        return static_cast<int>(v);
}

// "<key>%d" at the first occurrence of key.
std::optional<int> replies_read_keyed_int(const char *text, const char *key)
{
        const char *at = std::strstr(text, key);
        return at ? replies_read_int(at + std::strlen(key)) : std::nullopt;
}

// "<name>=%d" where name first occurs (a longer name that begins the same way hides it).
std::optional<int> replies_read_named_int(const char *text, const char *name)
{
        const char *at = std::strstr(text, name);
        if (!at)
                return std::nullopt;
        at += std::strlen(name);
        return *at == '=' ? replies_read_int(at + 1) : std::nullopt;
}

bool replies_read_keyed_float(const char *text, const char *key, float *value)
{
        const char *at = std::strstr(text, key);
        float v = 0.0f;
        if (!at || std::sscanf(at + std::strlen(key), "%f", &v) != 1 || !std::isfinite(v))
                return false;
        *value = v;
        return true;
}

// "%d.%d.%d.%d": how many of the four numbers read, in order.
int replies_read_version(const char *text, int (&version)[4])
{
        int n = 0;
        while (n < 4) {
                const std::optional<int> number = replies_read_int(text, &text);
                if (!number)
                        break;
                version[n++] = *number;
                if (*text != '.')
                        break;
                text++;
        }
        return n;
}

bool replies_version_has_stream(const int (&v)[4])
{
        if (v[0] != 5)
                return v[0] > 5;
        if (v[1] != 55)
                return v[1] > 55;
        if (v[2] != 1)
                return v[2] > 1;
        return v[3] > 2;
}

} // namespace

bool camera_parse_position_reply(const char *reply, PositionReply *out)
{
        *out = PositionReply{};
        if (!reply)
                return false;
        const bool pan = replies_read_keyed_float(reply, "pan=", &out->pan);
        const bool tilt = replies_read_keyed_float(reply, "tilt=", &out->tilt);
        const std::optional<int> zoom = replies_read_keyed_int(reply, "zoom=");
        if (zoom)
                out->zoom = *zoom;
        return pan || tilt || zoom;
}

bool probe_offers_metadata_stream(const char *properties)
{
        constexpr const char *version_key = "Properties.Firmware.Version";
        if (!properties || !std::strstr(properties, "Properties.API.Metadata.Metadata=yes"))
                return false;
        const char *at = std::strstr(properties, version_key);
        if (!at)
                return false;
        constexpr const char *version_line = "Properties.Firmware.Version=";
        if (g_ascii_strncasecmp(at, "Properties.Firmware.Version=cvp", 31) == 0 ||
            g_ascii_strncasecmp(at, "Properties.Firmware.Version=cfp", 31) == 0)
                return true;
        if (std::strncmp(at, version_line, std::strlen(version_line)) != 0)
                return false;
        int version[4] = {}; // numbers not read count as 0
        return replies_read_version(at + std::strlen(version_line), version) >= 2 &&
               replies_version_has_stream(version);
}

void probe_read_field_angles(const char *limits, float *min_field_angle, float *max_field_angle)
{
        *min_field_angle = NAN;
        *max_field_angle = NAN;
        if (!limits)
                return;
        if (const std::optional<int> tenths = replies_read_named_int(limits, "PTZ.Limit.L1.MinFieldAngle"))
                *min_field_angle = static_cast<float>(*tenths / 10.0);
        if (const std::optional<int> tenths = replies_read_named_int(limits, "PTZ.Limit.L1.MaxFieldAngle"))
                *max_field_angle = static_cast<float>(*tenths / 10.0);
}

bool probe_read_product_number(const char *brand, char product[64])
{
        const char *at = brand ? std::strstr(brand, "Brand.ProdNbr") : nullptr;
        return at && std::sscanf(at, "Brand.ProdNbr=%63s", product) == 1;
}
