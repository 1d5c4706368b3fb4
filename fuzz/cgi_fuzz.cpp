// A request body through the configuration CGI's envelope, method table and every handler,
// with the real settings store, tracking core, configuration file (the build's) and scene
// intake behind them. Tracking switches are applied from the main loop after each body, as
// the service would; bodies of odd length find the camera connected.
#include "camera_connection.h"
#include "cgi_api.h"
#include "fuzz_support.h"
#include "persistent.h"
#include "rcgi_envelope.h"
#include "settings_load.h"

#include <glib.h>
#include <glib/gstdio.h>

#include <cstdlib>

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
        fuzz_quiet_logs();
        fuzz_learn_radar_classes();
        if (g_mkdir_with_parents(TRELVO_CONF_DIR, 0700) != 0)
                abort();
        g_unlink(TRELVO_CONF_DIR "/trelvo.conf");
        if (!persistent_setup())
                abort();
        settings_load();
        return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
        const CameraConnectionState state = size % 2 ? CAMERA_CONNECTED : CAMERA_DISCONNECTED;
        if (camera_connection_state() != state)
                camera_set_state(state);
        char *answer = rcgi_dispatch(cgi_api_descriptor(), reinterpret_cast<const char *>(data), size);
        if (!answer)
                abort(); // every body gets an envelope
        free(answer);
        while (g_main_context_iteration(nullptr, FALSE))
                ;
        return 0;
}
