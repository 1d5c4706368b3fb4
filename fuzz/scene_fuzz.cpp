// A scene frame through the whole scene handler: frame decoding, the object checks, the
// exclusion test, classification and the class switches, the conversion to camera angles,
// the tracker's update and the sweep of objects that left; then a control tick's refresh
// and choice of target, on a clock that steps 100 ms per frame.
#include "clock.h"
#include "exclude_areas.h"
#include "fuzz_support.h"
#include "radar_metadata.h"
#include "scene_frame.h"
#include "settings.h"
#include "tracking.h"

#include <glib.h>
#include <google/protobuf/stubs/logging.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace {

constexpr size_t frame_header_size = 4;
// The subscriber library delivers frames up to 16 MiB. Beyond what an input holds a frame
// is zero bytes, which end any parse at once: longer claims cost time and find nothing.
constexpr size_t largest_delivered_frame = 64u * 1024u;
constexpr int64_t tick_us = 100000;

// One zone with a triangle in the corner of the plane, so the exclusion test has work.
void scene_fuzz_add_zone(void)
{
        exclude_areas_init();
        exclude_areas_clear();
        GVariant *triangle = g_variant_ref_sink(g_variant_new_parsed("[(-1.0, -1.0), (-0.5, -1.0), (-0.5, -0.5)]"));
        exclude_areas_add(1, triangle);
        g_variant_unref(triangle);
        exclude_areas_publish();
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
        fuzz_quiet_logs();
        google::protobuf::SetLogHandler(nullptr); // its complaints about bad strings
        clock_use_manual(1);
        fuzz_learn_radar_classes();
        tracking_core_attach(ptz_controller_create(), target_tracker_create());
        // Unidentified objects are not followed, so the class switches decide something.
        settings_set_object_types(TRUE, TRUE, TRUE, FALSE);
        scene_fuzz_add_zone();
        return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
        // Delivered as the subscriber library delivers: at least the four length bytes, and
        // never shorter than the length field says (the rest zero bytes).
        uint8_t header[frame_header_size] = {};
        memcpy(header, data, std::min(size, frame_header_size));
        const size_t length = std::max({size, size_t{scene_frame_read_length(header)}, frame_header_size});
        if (length > largest_delivered_frame)
                return 0;
        auto *frame = static_cast<uint8_t *>(calloc(length, 1));
        if (size > 0)
                memcpy(frame, data, size);
        radar_metadata_handle_scene(frame); // frees the frame

        clock_advance_us(tick_us);
        tracker_refresh();
        float pan, tilt, width;
        tracker_get_target(&pan, &tilt, &width, 0.0f, 0.0f);
        return 0;
}
