#pragma once

#include "HushmeadowsSaver/SystemSession.h"

#include <memory>
#include <sys/types.h>

namespace hushmeadows {

// The process that launched us (the screen saver daemon's graphics process,
// or the settings dialog for a preview), watched two ways: the kernel sends
// SIGTERM when it dies (PR_SET_PDEATHSIG), and isTerminated() sees that we
// were handed to another parent. The kernel's signal never comes when the
// parent died before we asked, so watch() checks right after asking.
class ParentProcess final : public WatchedProcess {
public:
    // None when the parent is already gone (we were re-parented to init or a
    // subreaper before we could ask).
    static std::shared_ptr<ParentProcess> watch();

    bool isTerminated() const override;
    pid_t pid() const { return parent_; }

private:
    explicit ParentProcess(pid_t parent) : parent_(parent) {}
    pid_t parent_;
};

} // namespace hushmeadows
