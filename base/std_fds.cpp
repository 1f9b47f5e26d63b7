#include "base/std_fds.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

bool ensure_std_fds()
{
    for (int fd = 0; fd <= 2; ++fd) {
        if (::fcntl(fd, F_GETFD) >= 0 || errno != EBADF)
            continue;
        // The lowest free descriptor is `fd`, since those below it are
        // open. Not close-on-exec: started programs inherit all three.
        const int got = ::open("/dev/null", O_RDWR); // NOLINT(android-cloexec-open)
        if (got != fd) {
            if (got >= 0)
                ::close(got);
            return false;
        }
    }
    return true;
}
