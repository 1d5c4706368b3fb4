// A camera reply text through every reader of the camera link: the position reply as the
// HTTP poll reads and applies it, and the three parameter lists of the probe as the probe
// uses them (stream offer, field angles into the zoom calibration, product number).
#include "camera_position.h"
#include "camera_replies.h"
#include "fuzz_support.h"
#include "ptz_commands.h"

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
        fuzz_quiet_logs();
        return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
        const std::string reply = fuzz_text(data, size);

        PositionReply read;
        camera_parse_position_reply(reply.c_str(), &read);
        camera_apply_position_reply(read);
        camera_remember_poll(read);

        probe_offers_metadata_stream(reply.c_str());
        float min_field_angle, max_field_angle;
        probe_read_field_angles(reply.c_str(), &min_field_angle, &max_field_angle);
        zoom_calibration_set_field_angles(min_field_angle, max_field_angle);
        zoom_magnification(camera_position_get().zoom_position);
        char product[64];
        probe_read_product_number(reply.c_str(), product);
        return 0;
}
