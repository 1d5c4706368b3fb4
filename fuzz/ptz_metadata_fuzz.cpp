// One RTP payload of the camera's metadata stream, as GStreamer hands it over (not
// NUL-terminated), through the ONVIF PTZ status reader into the camera position.
#include "camera_position.h"
#include "fuzz_support.h"
#include "metadata_feed.h"

#include <cstdlib>
#include <cstring>

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
        fuzz_quiet_logs();
        return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
        if (size == 0 || size > UINT32_MAX)
                return 0; // the feed hands over non-empty payloads only
        // A copy of exactly the payload's size, so that a read past its end is caught.
        auto *payload = static_cast<uint8_t *>(malloc(size));
        memcpy(payload, data, size);
        parse_ptz_metadata(payload, static_cast<uint32_t>(size), nullptr);
        free(payload);
        camera_position_get();
        return 0;
}
