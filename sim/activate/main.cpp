// sim-socket-activate: systemd's socket activation for the demo and the benchmark. Makes
// the listening stream socket at PATH and execs the command with it as descriptor 3,
// LISTEN_FDS=1 and LISTEN_PID set, as systemd does for a .socket unit. The exec keeps
// the process, so the pid in LISTEN_PID is the command's (the rig's sandbox execs on).
//
//   sim-socket-activate PATH -- CMD ARGS...
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

constexpr int systemd_first_fd = 3;
constexpr int backlog = 128;

int activate_fail(const char *what, const char *path)
{
        fprintf(stderr, "sim-socket-activate: %s %s: %s\n", what, path, strerror(errno));
        return 1;
}

} // namespace

int main(int argc, char **argv)
{
        if (argc < 4 || strcmp(argv[2], "--") != 0) {
                fprintf(stderr, "usage: sim-socket-activate PATH -- CMD ARGS...\n");
                return 2;
        }
        const char *path = argv[1];
        struct sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        if (strlen(path) >= sizeof(address.sun_path)) {
                errno = ENAMETOOLONG;
                return activate_fail("cannot use", path);
        }
        strcpy(address.sun_path, path);
        unlink(path); // a socket left by an earlier run
        const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
        if (fd < 0 || bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof(address)) != 0)
                return activate_fail("cannot bind", path);
        // The unit's mode: only the owner and the web server's group may connect.
        if (chmod(path, 0660) != 0 || listen(fd, backlog) != 0)
                return activate_fail("cannot listen on", path);
        if (fd != systemd_first_fd && (dup2(fd, systemd_first_fd) < 0 || close(fd) != 0))
                return activate_fail("cannot hand over", path);
        setenv("LISTEN_FDS", "1", 1);
        setenv("LISTEN_PID", std::to_string(getpid()).c_str(), 1);
        unsetenv("LISTEN_FDNAMES");
        execvp(argv[3], argv + 3);
        return activate_fail("cannot run", argv[3]);
}
