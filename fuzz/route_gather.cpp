// Fuzz target: gathering a route dump from the socket and walking it, as
// get_default_gw does, with the kernel replaced by the input. The input is
// a series of datagrams, each a 16-bit little-endian length and that many
// bytes (a length past the end takes what is left); they are queued on one
// end of a datagram socket pair whose other end read_nl_sock reads. The
// reading end does not block, so a dump without NLMSG_DONE ends in a
// receive error once the queue is empty instead of a wait for ever.
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "base/unique_fd.h"
#include "net/route.h"

namespace
{

constexpr std::size_t kGwTextMin = 16;
constexpr std::size_t kMaxDatagrams = 64;

// Queues the framed datagrams on `fd`; stops early when the socket's
// queue is full (send would block). Returns the bytes queued.
std::size_t queue_datagrams(int fd, const std::uint8_t *data, std::size_t size)
{
    std::size_t queued = 0;
    std::size_t off = 0;
    for (std::size_t n = 0; n < kMaxDatagrams && off + 2 <= size; ++n) {
        std::size_t len =
            static_cast<std::size_t>(data[off]) | (static_cast<std::size_t>(data[off + 1]) << 8);
        off += 2;
        if (len > size - off)
            len = size - off;
        if (send(fd, data + off, len, MSG_DONTWAIT) < 0)
            break;
        queued += len;
        off += len;
    }
    return queued;
}

// What was gathered never exceeds the buffer nor what was queued.
void check_total(int total, std::size_t queued)
{
    if (total < -1 || (total >= 0 && static_cast<std::size_t>(total) > kRouteBufSize) ||
        (total >= 0 && static_cast<std::size_t>(total) > queued)) {
        std::fprintf(stderr, "read_nl_sock returned %d for %zu queued bytes\n", total, queued);
        std::abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    // read_nl_sock reports through perror; keep the run's output readable.
    if (std::freopen("/dev/null", "w", stdout) == nullptr)
        return 0;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    int sv[2];
    if (socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, sv) != 0) {
        std::perror("socketpair");
        std::abort();
    }
    unique_fd reader(sv[0]);
    unique_fd writer(sv[1]);
    const std::size_t queued = queue_datagrams(writer.get(), data, size);
    writer.reset();

    // Exactly the buffer's size on the heap, so ASan catches a write past
    // it; the pattern stands for whatever an earlier lookup left there.
    std::unique_ptr<unsigned char[]> buf(new unsigned char[kRouteBufSize]);
    std::memset(buf.get(), 0xA5, kRouteBufSize);
    // perror lines for the failing dumps are expected; silence stderr for
    // the call only, so a crash report still reaches the terminal.
    const int saved_err = dup(2);
    const int null_fd = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(null_fd, 2);
    const int total = read_nl_sock(reader.get(), buf.get());
    dup2(saved_err, 2);
    close(saved_err);
    close(null_fd);
    check_total(total, queued);

    if (total > 0) {
        std::unique_ptr<char[]> gw(new char[kGwTextMin]());
        walk_route_dump(buf.get(), static_cast<std::size_t>(total), gw.get());
        if (std::memchr(gw.get(), '\0', kGwTextMin) == nullptr) {
            std::fprintf(stderr, "gateway text not terminated\n");
            std::abort();
        }
    }
    return 0;
}
