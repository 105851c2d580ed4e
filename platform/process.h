// Other programs, run without a shell.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/wait.h"

namespace qv::platform {

/// How a program ended.
struct ChildEnd {
    int code = 0;           ///< Its exit code, or 128 and the number of the signal that ended it.
    bool bySignal = false;  ///< It did not end by itself.
};

/// A program that this one has started; one at a time.
class ChildProcess {
public:
    struct Options {
        std::string directory;  ///< Where it works; where this one does when empty.
        /// What it writes, to either stream, is for readOutput, and no descriptor of this program reaches it.
        /// Otherwise it writes where this one writes.
        bool captured = false;
        /// stop() reaches what it has started as well, and interrupts from the terminal do not reach it.
        bool ownGroup = false;
    };

    ChildProcess() = default;
    /// Waits for its end.
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    /// Starts a program with its arguments, the first of which is its name or path (seen from `directory` when it is
    /// relative). It has nothing to read, and no signal is blocked or ignored in it when it is captured. 0, or why it
    /// cannot be started.
    int start(const std::vector<std::string>& arguments, const Options& options);
    int start(const std::vector<std::string>& arguments) { return start(arguments, Options()); }
    bool runs() const { return m_id != 0; }
    /// Readable once it has ended.
    WaitHandle ended() const { return m_ended; }
    bool hasEnded() const;
    /// Readable when there is output; noHandle when there will be none.
    WaitHandle output() const { return m_output; }
    /// Takes what waits of its output, `size` bytes at most; never blocks. 0 when nothing waits.
    size_t readOutput(char* buffer, size_t size);
    /// Waits for its end; what it has written until then can still be read.
    ChildEnd finish();
    /// Asks it to end, or ends it by force. Of a program that has ended it reaches, until finish(), what that has
    /// started in its group.
    void stop(bool byForce);

private:
    int m_id = 0;
    bool m_ownGroup = false;
    WaitHandle m_ended = noHandle;
    WaitHandle m_output = noHandle;
};

enum class Followed { toTheEnd, timedOut, interrupted };

/// Takes a captured program's output as it comes, in chunks of at most `chunkSize` bytes, until the program has ended
/// and nothing waits any more. What others write that hold its output open is not waited for.
/// @param deadline   Of deadlineAfter().
/// @param interrupt  Ends the following when it is readable; may be noHandle.
Followed follow(ChildProcess& child, size_t chunkSize, const std::function<void(std::string_view)>& take,
                int64_t deadline, WaitHandle interrupt = noHandle);

}  // namespace qv::platform
