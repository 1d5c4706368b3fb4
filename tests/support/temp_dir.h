// A fresh directory under the temporary one, for a test's files and sockets; it goes with
// whatever is left in it.
#pragma once

#include <glib.h>
#include <glib/gstdio.h>

#include <string>

class TempDir {
public:
        explicit TempDir(const char *prefix)
        {
                g_autofree gchar *made = g_dir_make_tmp((std::string(prefix) + "-XXXXXX").c_str(), nullptr);
                path_ = made ? made : "/nonexistent";
        }
        ~TempDir()
        {
                g_autoptr(GDir) dir = g_dir_open(path_.c_str(), 0, nullptr);
                for (const char *name; dir && (name = g_dir_read_name(dir));)
                        g_remove(file(name).c_str());
                g_rmdir(path_.c_str());
        }
        TempDir(const TempDir &) = delete;
        TempDir &operator=(const TempDir &) = delete;

        const std::string &path() const { return path_; }
        std::string file(const std::string &name) const { return path_ + "/" + name; }

private:
        std::string path_;
};
