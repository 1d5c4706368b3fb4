#include "fuzz_support.h"

#include "in_process_provider.h"
#include "radar_metadata.h"

#include <glib.h>
#include <glib/gstdio.h>

#include <cstdlib>

namespace {

// Not a lambda: its invoker copies the level, and our error level is outside the enum.
void fuzz_drop_log(const gchar *, GLogLevelFlags, const gchar *, gpointer) {}

} // namespace

void fuzz_quiet_logs(void)
{
        g_log_set_default_handler(fuzz_drop_log, nullptr);
        g_log_set_always_fatal(static_cast<GLogLevelFlags>(G_LOG_LEVEL_CRITICAL | G_LOG_LEVEL_ERROR));
}

void fuzz_learn_radar_classes(void)
{
        g_autofree gchar *dir = g_dir_make_tmp("trelvo-fuzz-XXXXXX", nullptr);
        const std::string path = std::string(dir) + "/scene-provider.sock";
        g_setenv("RADAR_SCENE_PROVIDER_SOCKET", path.c_str(), TRUE);
        {
                // Needed for the set-up only: a later subscription finds no provider and
                // keeps retrying quietly, which is all a fuzzer needs of it.
                InProcessProvider provider(path, {"Raw", "RawAssociated", "Unknown", "Human", "Vehicle", "SmallObject"});
                if (!provider.ok() || !radar_metadata_setup() || radar_metadata_get_object_classes() != 0x3f)
                        abort();
        }
        g_unlink(path.c_str());
        g_rmdir(dir);
}

std::string fuzz_text(const uint8_t *data, size_t size)
{
        return std::string(reinterpret_cast<const char *>(data), size).c_str();
}
