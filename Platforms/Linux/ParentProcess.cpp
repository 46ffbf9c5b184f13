#include "Platforms/Linux/ParentProcess.h"

#include <csignal>
#include <sys/prctl.h>
#include <unistd.h>

namespace hushmeadows {

std::shared_ptr<ParentProcess> ParentProcess::watch()
{
    // The parent of a process started by fork+exec is known before exec; a
    // parent of 1 means it has already died and we belong to init.
    const pid_t parent = ::getppid();
    ::prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (parent <= 1 || ::getppid() != parent)
        return nullptr;
    return std::shared_ptr<ParentProcess>(new ParentProcess(parent));
}

bool ParentProcess::isTerminated() const { return ::getppid() != parent_; }

} // namespace hushmeadows
