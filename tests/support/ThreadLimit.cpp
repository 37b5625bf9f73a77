#include "support/ThreadLimit.h"

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <thread>

namespace corvane_test {

bool runWithThreadLimit(int in_iAllowed, const std::function<void()>& in_function, std::string* out_error) {
    const int kPending = -1;
    const int kRefused = -2;
    std::atomic<int> listener{kPending};  // the filter's notification descriptor, once installed
    std::atomic<int> refusal{0};          // errno of a refused filter
    std::atomic<bool> done{false};        // the function returned
    std::thread worker([&] {
        sock_filter filter[] = {
            BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
            BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, __NR_clone3, 2, 0),
            BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, __NR_clone, 1, 0),
            BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
            BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_USER_NOTIF),
        };
        sock_fprog program{static_cast<unsigned short>(sizeof filter / sizeof filter[0]), filter};
        // Only this thread and the threads it makes carry the filter.
        prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
        const long fd = syscall(__NR_seccomp, SECCOMP_SET_MODE_FILTER, SECCOMP_FILTER_FLAG_NEW_LISTENER, &program);
        if (fd < 0) {
            refusal = errno;
            listener = kRefused;
            return;
        }
        listener = static_cast<int>(fd);
        in_function();
        done = true;
    });
    // The supervisor: answers every trapped creation until the function returned.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (listener == kPending && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
    const int fd = listener;
    if (fd < 0) {
        worker.join();
        if (out_error) *out_error = std::string("seccomp filter refused: ") + std::strerror(refusal);
        return false;
    }
    int allowed = in_iAllowed;
    while (!done) {
        pollfd pfd{fd, POLLIN, 0};
        if (poll(&pfd, 1, 20) <= 0) continue;
        seccomp_notif request{};
        if (ioctl(fd, SECCOMP_IOCTL_NOTIF_RECV, &request) < 0) continue;  // the caller went away
        seccomp_notif_resp response{};
        response.id = request.id;
        if (allowed > 0) {
            --allowed;
            response.flags = SECCOMP_USER_NOTIF_FLAG_CONTINUE;
        } else {
            response.error = -EAGAIN;
        }
        ioctl(fd, SECCOMP_IOCTL_NOTIF_SEND, &response);
    }
    worker.join();
    // Threads the function left running keep the filter; with the listener
    // gone, a creation of theirs fails at once.
    close(fd);
    return true;
}

}  // namespace corvane_test
