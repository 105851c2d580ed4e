// Other programs, run without a shell. Compiled into the tool: it is no part of the library's interface.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/wait.h"

namespace qv::platform {

/// A program that this one has started; one at a time.
class ChildProcess {
public:
    ChildProcess() = default;
    /// Waits for its end.
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    /// Starts a program with its arguments, the first of which is its name or path. It writes where this one writes,
    /// and has nothing to read. 0, or why it cannot be started.
    int start(const std::vector<std::string>& arguments);
    bool runs() const { return m_id != 0; }
    /// Readable once it has ended.
    WaitHandle ended() const { return m_ended; }
    /// Waits for its end. Its exit code, or 128 and the number of the signal that ended it.
    int finish();
    /// Asks it to end, or ends it by force.
    void stop(bool byForce);

private:
    int m_id = 0;
    WaitHandle m_ended = noHandle;
};

}  // namespace qv::platform
