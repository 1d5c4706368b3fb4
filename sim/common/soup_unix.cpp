#include "soup_unix.h"

#include <gio/gunixsocketaddress.h>
#include <sys/stat.h>
#include <unistd.h>

bool sim_soup_listen_unix(SoupServer *server, const char *path, GError **error)
{
        struct stat st;
        if (lstat(path, &st) == 0 && S_ISSOCK(st.st_mode))
                unlink(path); // left by an earlier run
        g_autoptr(GSocket) socket = g_socket_new(G_SOCKET_FAMILY_UNIX, G_SOCKET_TYPE_STREAM, G_SOCKET_PROTOCOL_DEFAULT, error);
        g_autoptr(GSocketAddress) address = g_unix_socket_address_new(path);
        return socket && g_socket_bind(socket, address, FALSE, error) && g_socket_listen(socket, error) &&
               soup_server_listen_socket(server, socket, static_cast<SoupServerListenOptions>(0), error);
}
