// One round of a bare c-ares event loop for the benchmarks that compare the
// library with c-ares driven directly: waits for the channel's sockets or its
// next time-out (at most 1 s), then processes what is ready.
#pragma once

#include <poll.h>

#include <ares.h>

namespace corvane_bench {

inline void processOnce(ares_channel in_channel) {
    ares_socket_t sockets[ARES_GETSOCK_MAXNUM];
    pollfd fds[ARES_GETSOCK_MAXNUM];
    const int bits = ares_getsock(in_channel, sockets, ARES_GETSOCK_MAXNUM);
    nfds_t count = 0;
    for (int i = 0; i < ARES_GETSOCK_MAXNUM; ++i) {
        short events = 0;
        if (ARES_GETSOCK_READABLE(bits, i)) events |= POLLIN;
        if (ARES_GETSOCK_WRITABLE(bits, i)) events |= POLLOUT;
        if (events != 0) fds[count++] = pollfd{sockets[i], events, 0};
    }
    timeval maxWait{1, 0};
    timeval wait;
    const timeval* pWait = ares_timeout(in_channel, &maxWait, &wait);
    poll(fds, count, static_cast<int>(pWait->tv_sec * 1000 + (pWait->tv_usec + 999) / 1000));
    bool bReady = false;
    for (nfds_t i = 0; i < count; ++i) {
        if (fds[i].revents == 0) continue;
        bReady = true;
        ares_process_fd(in_channel, (fds[i].revents & ~POLLOUT) ? fds[i].fd : ARES_SOCKET_BAD,
                        (fds[i].revents & POLLOUT) ? fds[i].fd : ARES_SOCKET_BAD);
    }
    if (!bReady) ares_process_fd(in_channel, ARES_SOCKET_BAD, ARES_SOCKET_BAD);
}

}  // namespace corvane_bench
