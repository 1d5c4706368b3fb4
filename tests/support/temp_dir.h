// A fresh directory under the temporary one, for a test's files and sockets; it goes with
// whatever is left in it. Also the readers tests use on the files they find there, and
// on the strings the code under test hands over.
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

// A string the code under test handed over to free, as text; "(null)" for none.
inline std::string taken(gchar *text)
{
        g_autofree gchar *owned = text;
        return owned ? owned : "(null)";
}

// The file's whole text, "" when it cannot be read.
inline std::string file_text(const std::string &path)
{
        g_autofree gchar *text = nullptr;
        g_file_get_contents(path.c_str(), &text, nullptr, nullptr);
        return text ? text : "";
}

// A key's text in a key file, "(none)" when the file or the key is not there.
inline std::string key_file_value(const std::string &path, const char *group, const char *key)
{
        g_autoptr(GKeyFile) file = g_key_file_new();
        g_key_file_load_from_file(file, path.c_str(), G_KEY_FILE_NONE, nullptr);
        g_autofree gchar *value = g_key_file_get_value(file, group, key, nullptr);
        return value ? value : "(none)";
}
