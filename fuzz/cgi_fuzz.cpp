// A request body through the configuration CGI as the radar CGI library dispatches it:
// the envelope, the method table and every handler, with the real settings store,
// tracking core, configuration file and scene intake behind them. Only the socket and
// HTTP are left out. Tracking switches are applied from the main loop after each body, as
// the service would; the camera counts as connected for bodies of odd length, so that the
// handlers that need a camera are reached too.
//
// The configuration file is the build's (the fuzz preset puts it in its build tree).
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
