#include "Platforms/Linux/ParentProcess.h"

#include <gtest/gtest.h>

#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

namespace hushmeadows {
namespace {

struct Report { char seen; pid_t pid; };

// A watcher under a middle process that stands in for the daemon. The
// watcher reports what watch() found and keeps the pipe open until it dies.
TEST(ParentProcess, ADeadParentEndsTheWatcherAlsoWhenItDiedFirst)
{
    for (bool diesFirst : {false, true}) {
        SCOPED_TRACE(diesFirst ? "parent died before watch()" : "parent dies later");
        int fds[2];
        ASSERT_EQ(::pipe(fds), 0);
        pid_t middle = ::fork();
        if (middle == 0) {
            const pid_t self = ::getpid();
            if (::fork() == 0) {
                while (diesFirst && ::getppid() == self)
                    ::usleep(1000);
                Report report{ParentProcess::watch() ? 'w' : 'n', ::getpid()};
                [[maybe_unused]] auto written = ::write(fds[1], &report, sizeof report);
            } else if (diesFirst) {
                ::_exit(0);
            }
            for (;;) // the watcher, and a middle process waiting for its kill
                ::pause();
        }
        ::close(fds[1]);
        Report report{};
        ASSERT_EQ(::read(fds[0], &report, sizeof report), static_cast<ssize_t>(sizeof report));
        EXPECT_EQ(report.seen, diesFirst ? 'n' : 'w');
        ::kill(middle, SIGKILL);
        ::waitpid(middle, nullptr, 0);
        if (!diesFirst) {
            // The watcher is gone when its end of the pipe closes.
            pollfd end{fds[0], POLLIN, 0};
            EXPECT_TRUE(::poll(&end, 1, 2000) == 1 && ::read(fds[0], &report, 1) == 0) << "the watcher outlived its parent";
        }
        // A watcher told there is nothing to watch leaves by itself in the saver.
        ::kill(report.pid, SIGKILL);
        ::close(fds[0]);
    }
}

} // namespace
} // namespace hushmeadows
